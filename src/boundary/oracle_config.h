#pragma once

#include "oracle/oracle_settings.h"

namespace specific {
namespace oracle {

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
