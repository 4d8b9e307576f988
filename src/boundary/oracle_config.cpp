#include "boundary/oracle_config.h"

#include <windows.h>

#include <string>
#include <utility>

#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/registry.h"

namespace specific {
namespace oracle {

namespace {

// A DWORD that is absent, of another type or unreadable leaves the default.
int32_t read_int(const win::win_reg_key_t& key, const wchar_t* name, int32_t current)
{
    try {
        return static_cast<int32_t>(key.get_dword_or(name, static_cast<uint32_t>(current)));
    } catch (const std::exception&) {
        return current;
    }
}

bool read_bool(const win::win_reg_key_t& key, const wchar_t* name, bool current)
{
    try {
        return key.get_bool_or(name, current);
    } catch (const std::exception&) {
        return current;
    }
}

std::wstring read_string(const win::win_reg_key_t& key, const wchar_t* name,
                         const std::wstring& current)
{
    try {
        return key.get_string_or(name, current);
    } catch (const std::exception&) {
        return current;
    }
}

} // namespace

COracleConfig::COracleConfig()
{
    try {
        std::shared_ptr<win::win_reg_key_t> key =
            win::open_subkey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Brelm\\Brelm Safeguard", KEY_READ);
        if (!key)
            return;
        connectionTimeoutSec = read_int(*key, L"OracleConnectionTimeout", connectionTimeoutSec);
        restoreWaitInSec = read_int(*key, L"OracleRestoreWaitInSec", restoreWaitInSec);
        agentTtlSec = read_int(*key, L"OracleAgentTtlSec", agentTtlSec);
        waitDbStartedAttemptCount =
            read_int(*key, L"OracleWaitDbStartedAttemptCount", waitDbStartedAttemptCount);
        tempLogPath = read_string(*key, L"OracleTempLogPath", tempLogPath);
        checkAsmLogFileExistence =
            read_bool(*key, L"CheckAsmLogFileExistence", checkAsmLogFileExistence);
        supportOracle10 = read_bool(*key, L"SupportOracle10", supportOracle10);
        stageLogsBeforeBackup = read_bool(*key, L"OracleStageLogsBeforeBackup", stageLogsBeforeBackup);
        deleteAbsentLogFiles = read_bool(*key, L"DeleteOracleAbsentLogFiles", deleteAbsentLogFiles);
        disableOracleProcessing =
            read_bool(*key, L"DisableOracleProcessing", disableOracleProcessing);
        useAutostartOption = read_bool(*key, L"UseOracleAutostartOption", useAutostartOption);
        skipNoArchiveLogDb = read_bool(*key, L"OracleSkipNoArchiveLogDB", skipNoArchiveLogDb);
    } catch (const std::exception& e) {
        logging::oralib().error_exc("Failed to init oracle config", e);
    }
}

const COracleConfig& COracleConfig::Instance()
{
    static const COracleConfig config;
    return config;
}

const COracleBaseConfig& OracleSettings()
{
    return COracleConfig::Instance();
}

void COracleConfig::Log() const
{
    const std::pair<const char*, std::string> lines[] = {
        {"ConnectionTimeoutSec: %1", util::int_to_str(connectionTimeoutSec)},
        {"OracleRestoreWaitInSec: %1", util::int_to_str(restoreWaitInSec)},
        {"OracleAgentTtlSec: %1", util::int_to_str(agentTtlSec)},
        {"WaitDbStartedAttemptCount: %1", util::int_to_str(waitDbStartedAttemptCount)},
        {"CheckAsmLogFileExistence: %1", util::bool_to_str(checkAsmLogFileExistence)},
        {"SupportOracle10: %1", util::bool_to_str(supportOracle10)},
        {"OracleStageLogsBeforeBackup: %1", util::bool_to_str(stageLogsBeforeBackup)},
        {"DisableOracleProcessing: %1", util::bool_to_str(disableOracleProcessing)},
        {"DetectAsmInstancesByQuery: %1", util::bool_to_str(detectAsmInstancesByQuery)},
        {"UseAutostartOption: %1", util::bool_to_str(useAutostartOption)},
        {"OracleSkipNoArchiveLogDB: %1", util::bool_to_str(skipNoArchiveLogDb)},
        {"OracleTempLogPath: %1", util::wide_to_ansi_safe(tempLogPath)},
        {"DeleteOracleAbsentLogFiles: %1", util::bool_to_str(deleteAbsentLogFiles)},
    };
    const logging::log_channel_t& log = logging::oralib();
    log.info("Oracle agent config:");
    for (const auto& [format, value] : lines)
        log.info(format, value);
    log.info("=======================");
}

} // namespace oracle
} // namespace specific
