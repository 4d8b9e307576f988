#pragma once

#include <cstdint>
#include <string>

namespace specific {
namespace oracle {

// Built-in defaults of the library's tuning and the derived log folder.
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

// The process-wide configuration: defaults overlaid by the agent's registry
// key, read once on first use and never changed afterwards.
class COracleConfig : public COracleBaseConfig {
public:
    static const COracleConfig& Instance();

    // Writes the configuration dump to the log.
    void Log() const;

    // Builds a configuration from the registry as it is now; Instance() keeps
    // the first one for the life of the process.
    COracleConfig();
};

} // namespace oracle
} // namespace specific
