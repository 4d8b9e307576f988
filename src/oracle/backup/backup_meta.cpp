#include "oracle/backup/backup_meta.h"

#include "common/win/file.h"
#include "oracle/oracle_settings.h"

namespace specific {
namespace oracle {

std::wstring GetRestoreMetaPath()
{
    const std::wstring path =
        win::join_path(OracleSettings().tempLogPath, L"OracleMeta.xml");
    win::create_folders(path);
    return path;
}

} // namespace oracle
} // namespace specific
