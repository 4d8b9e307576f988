#include "oracle/oracle_settings.h"

#include <windows.h>
#include <shlobj.h>

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/win/file.h"

namespace specific {
namespace oracle {

namespace {

bool ends_with_separator(const std::wstring& path)
{
    return !path.empty() && (path.back() == L'\\' || path.back() == L'/');
}

} // namespace

COracleBaseConfig::COracleBaseConfig()
{
    try {
        wchar_t folder[MAX_PATH + 1] = {};
        const HRESULT result =
            SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, folder);
        if (result != S_OK)
            throw exc::com_exc_t(result, "Cannot get the path to the system directory containing "
                                         "application data for all users");
        tempLogPath = win::join_path(win::join_path(folder, L"Brelm\\Backup"), L"OracleLogBackup");
        if (!ends_with_separator(tempLogPath))
            tempLogPath += L"\\";
    } catch (const std::exception& e) {
        logging::oralib().error_exc("Failed to init base config", e);
    }
}

} // namespace oracle
} // namespace specific
