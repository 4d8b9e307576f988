#pragma once

#include "oracle/client/oracle_env.h"

#include <cstdint>
#include <memory>
#include <string>

namespace specific {
namespace oracle {

class CCallWatchdog;

// Bounds the round trips of one session's statements (each execute and each
// fetch) by the connection timeout. A client that knows call timeouts cuts a
// late call itself; for one that refuses them a watchdog thread of the session
// calls OCIBreak at the deadline; a client with neither leaves statements
// unbounded, as they always were. A call that was cut gives the session up.
class COracleRoundTrips {
public:
    COracleRoundTrips(std::shared_ptr<COracleEnv> env, std::shared_ptr<COracleHandle> serviceContext);
    ~COracleRoundTrips();
    COracleRoundTrips(const COracleRoundTrips&) = delete;
    COracleRoundTrips& operator=(const COracleRoundTrips&) = delete;

    // Bounds every later round trip by `timeoutSec` (none for 0 or less);
    // `sid` names the database in the failure texts.
    void Bound(const std::string& sid, int32_t timeoutSec);

    // Raises when the session was given up: nothing may be sent on it again.
    void CheckUsable() const;

    // Runs one execute or fetch of `statement` and returns its status. When the
    // bound cut it, the session is given up and COracleCallTimeoutExc raised.
    template <typename F>
    oci::sword Run(const std::string& statement, F&& call)
    {
        CheckUsable();
        CArmed armed(*this);
        const oci::sword status = call();
        return armed.Finish(statement, status);
    }

    // Lifts the bound for the life of the object: starting, opening and
    // shutting down a database may rightly take minutes.
    class CUnbounded {
    public:
        explicit CUnbounded(COracleRoundTrips& trips);
        ~CUnbounded();
        CUnbounded(const CUnbounded&) = delete;
        CUnbounded& operator=(const CUnbounded&) = delete;

    private:
        COracleRoundTrips& trips_;
    };

private:
    enum class EBound { None, CallTimeout, Watchdog };

    // One round trip under the watchdog, when it has one: armed for the life of
    // the object.
    class CArmed {
    public:
        explicit CArmed(COracleRoundTrips& trips);
        ~CArmed();
        CArmed(const CArmed&) = delete;
        CArmed& operator=(const CArmed&) = delete;
        oci::sword Finish(const std::string& statement, oci::sword status);

    private:
        COracleRoundTrips& trips_;
        bool armed_ = false;
        bool broken_ = false;
    };

    oci::sword SetCallTimeout(oci::ub4 milliseconds) const;
    [[noreturn]] void RaiseTimeout(const std::string& statement, int32_t code);

    std::shared_ptr<COracleEnv> env_;
    std::shared_ptr<COracleHandle> serviceContext_;
    std::string sid_;
    int32_t timeoutSec_ = 0;
    EBound bound_ = EBound::None;
    int unbounded_ = 0;
    std::unique_ptr<CCallWatchdog> watchdog_;
};

} // namespace oracle
} // namespace specific
