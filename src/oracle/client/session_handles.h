#pragma once

#include "oracle/client/oracle_env.h"
#include "oracle/client/round_trips.h"

#include <memory>

namespace specific {
namespace oracle {

// The OCI handles of one logged-on session, and the bound on its round trips:
// all that a query or a command needs of it, so that neither has to know the
// session itself.
struct SOracleSessionHandles {
    std::shared_ptr<COracleEnv> env;
    std::shared_ptr<COracleHandle> serviceContext;
    std::shared_ptr<COracleHandle> server;
    std::shared_ptr<COracleHandle> session;
    std::shared_ptr<COracleRoundTrips> roundTrips;
};

} // namespace oracle
} // namespace specific
