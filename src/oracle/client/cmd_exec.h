#pragma once

#include "oracle/client/session_handles.h"

#include <memory>
#include <string>

namespace specific {
namespace oracle {

// Runs one PL/SQL block or DDL statement on a session, with bound
// parameters where a query has no way of binding; its execute is bounded as
// the session's round trips are.
class COracleCmdExec {
public:
    // Prepares `command`.
    COracleCmdExec(const SOracleSessionHandles& session, const std::string& command);

    // Binds one placeholder to `value`, which the caller keeps alive until
    // Execute. The bind belongs to the statement and goes with it.
    void Bind(const std::string& name, void* value, oci::ub2 dty, oci::sb4 size);
    // Runs the statement once.
    void Execute();

private:
    std::shared_ptr<COracleEnv> env;
    std::shared_ptr<COracleHandle> serviceContext;
    std::shared_ptr<COracleHandle> statement;
    std::shared_ptr<COracleRoundTrips> roundTrips;
    std::string command;
};

} // namespace oracle
} // namespace specific
