#pragma once

#include <cstdint>
#include <string>

namespace specific {
namespace oracle {

// The library's tuning: built-in defaults and the derived log folder. The
// agent's configuration overlays it once per process; the Oracle code only
// reads it.
class COracleBaseConfig {
public:
    COracleBaseConfig();

    int32_t connectionTimeoutSec = 300;
    int32_t restoreWaitInSec = 45;
    int32_t agentTtlSec = 600;
    int32_t waitDbStartedAttemptCount = 30;
    std::wstring tempLogPath;
    bool checkAsmLogFileExistence = false;
    bool supportOracle10 = false;
    bool useAutostartOption = false;
    bool disableOracleProcessing = false;
    bool stageLogsBeforeBackup = false;
    bool skipNoArchiveLogDb = false;
    bool detectAsmInstancesByQuery = true;
    bool deleteAbsentLogFiles = true;
};

// The process-wide settings, read from the agent's configuration on first
// use and never changed afterwards. The reading lives with the library's
// boundary; the Oracle code sees only this record.
const COracleBaseConfig& OracleSettings();

} // namespace oracle
} // namespace specific
