#include "oracle/backup/backup_meta.h"

#include "boundary/oracle_config.h"
#include "common/win/file.h"

namespace specific {
namespace oracle {

std::wstring GetRestoreMetaPath()
{
    const std::wstring path =
        win::join_path(COracleConfig::Instance().tempLogPath, L"OracleMeta.xml");
    win::create_folders(path);
    return path;
}

} // namespace oracle
} // namespace specific
