#include "oracle/client/round_trips.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/oracle_exc.h"

#include <chrono>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <thread>
#include <utility>

namespace specific {
namespace oracle {

namespace {

// What a client answers to a call that its call timeout cut (the number
// changed between client versions), and to one that OCIBreak cancelled.
constexpr int32_t kCallTimedOut = 3156;
constexpr int32_t kCallTimedOutOld = 3136;
constexpr int32_t kCallCancelled = 1013;

// How long the end of a session waits for its watchdog; one stuck in a hung
// OCIBreak is left behind rather than holding the caller.
constexpr auto kWatchdogStopWait = std::chrono::seconds(1);

int32_t last_error_code(const COracleEnv& env)
{
    oci::sb4 code = 0;
    oci::OraText text[2048] = {};
    env.Ora().ErrorGet(env.ErrorHandle(), &code, text, sizeof(text));
    return code;
}

oci::ub4 to_milliseconds(int32_t timeoutSec)
{
    constexpr int64_t most = std::numeric_limits<oci::ub4>::max();
    const int64_t milliseconds = static_cast<int64_t>(timeoutSec) * 1000;
    return static_cast<oci::ub4>(milliseconds < most ? milliseconds : most);
}

void log_unbounded_once()
{
    static std::once_flag logged;
    std::call_once(logged, [] {
        logging::oralib().warning("The Oracle client has neither call timeouts nor OCIBreak: statements are "
                                  "not bounded by the connection timeout.");
    });
}

} // namespace

// One thread per session that needs it: armed for each round trip, it calls
// OCIBreak on the session's service context when the deadline passes first.
class CCallWatchdog {
public:
    CCallWatchdog(std::shared_ptr<COracleEnv> env, std::shared_ptr<COracleHandle> serviceContext,
                  const std::string& sid)
        : state_(std::make_shared<SState>())
    {
        state_->error = COracleHandle::Alloc(env, oci::OCI_HTYPE_ERROR);
        state_->env = std::move(env);
        state_->serviceContext = std::move(serviceContext);
        state_->sid = sid;
        thread_ = std::thread(&CCallWatchdog::Watch, state_);
    }

    ~CCallWatchdog()
    {
        std::unique_lock<std::mutex> lock(state_->lock);
        state_->stop = true;
        state_->wake.notify_all();
        const bool ended = state_->ended.wait_for(lock, kWatchdogStopWait, [this] { return state_->done; });
        lock.unlock();
        if (ended)
            thread_.join();
        else
            thread_.detach();
    }

    void Arm(int32_t timeoutSec)
    {
        std::lock_guard<std::mutex> lock(state_->lock);
        state_->armed = true;
        state_->broke = false;
        ++state_->round;
        state_->deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSec);
        state_->wake.notify_one();
    }

    // True when the deadline passed and the call was broken.
    bool Disarm()
    {
        std::lock_guard<std::mutex> lock(state_->lock);
        state_->armed = false;
        return state_->broke;
    }

private:
    struct SState {
        std::shared_ptr<COracleEnv> env;
        std::shared_ptr<COracleHandle> serviceContext;
        // Its own error handle: the caller's is in use by the call being broken.
        std::shared_ptr<COracleHandle> error;
        std::string sid;
        std::mutex lock;
        std::condition_variable wake;
        std::condition_variable ended;
        bool stop = false;
        bool armed = false;
        bool broke = false;
        bool done = false;
        uint64_t round = 0;
        std::chrono::steady_clock::time_point deadline;
    };

    static void Watch(const std::shared_ptr<SState>& state)
    {
        std::unique_lock<std::mutex> lock(state->lock);
        while (!state->stop) {
            if (!state->armed) {
                state->wake.wait(lock);
                continue;
            }
            const uint64_t round = state->round;
            const auto moved = [&state, round] {
                return state->stop || !state->armed || state->round != round;
            };
            if (state->wake.wait_until(lock, state->deadline, moved))
                continue;
            state->broke = true;
            lock.unlock();
            Break(*state);
            lock.lock();
            state->wake.wait(lock, moved);
        }
        state->done = true;
        state->ended.notify_all();
    }

    static void Break(const SState& state)
    {
        try {
            logging::oralib().info("A statement on SID %1 passed the connection timeout: calling OCIBreak.",
                                   state.sid);
            state.env->Ora().Break(state.serviceContext->As<oci::OCISvcCtx>(),
                                   state.error->As<oci::OCIError>());
        } catch (const std::exception& e) {
            state.env->GiveUp(e.what());
        }
    }

    std::shared_ptr<SState> state_;
    std::thread thread_;
};

COracleRoundTrips::COracleRoundTrips(std::shared_ptr<COracleEnv> env,
                                     std::shared_ptr<COracleHandle> serviceContext)
    : env_(std::move(env)), serviceContext_(std::move(serviceContext))
{
}

COracleRoundTrips::~COracleRoundTrips() = default;

void COracleRoundTrips::Bound(const std::string& sid, int32_t timeoutSec)
{
    sid_ = sid;
    timeoutSec_ = timeoutSec;
    if (timeoutSec <= 0)
        return;
    if (SetCallTimeout(to_milliseconds(timeoutSec)) == oci::OCI_SUCCESS) {
        bound_ = EBound::CallTimeout;
        return;
    }
    if (!env_->Ora().HasBreak()) {
        log_unbounded_once();
        return;
    }
    bound_ = EBound::Watchdog;
    logging::oralib().info("The Oracle client refuses call timeouts: statements on SID %1 are cancelled "
                           "with OCIBreak after %2 s.",
                           sid, util::int_to_str(timeoutSec));
}

void COracleRoundTrips::CheckUsable() const
{
    if (env_->GivenUp())
        throw exc::runtime_exc_t("The oracle session of SID %1 is not used again: %2", sid_,
                                 env_->GiveUpReason());
}

oci::sword COracleRoundTrips::SetCallTimeout(oci::ub4 milliseconds) const
{
    return env_->Ora().AttrSet(serviceContext_->handle, oci::OCI_HTYPE_SVCCTX, &milliseconds,
                               sizeof(milliseconds), oci::OCI_ATTR_CALL_TIMEOUT, env_->ErrorHandle());
}

void COracleRoundTrips::RaiseTimeout(const std::string& statement, int32_t code)
{
    const std::string text = util::format_msg(
        "The statement [%1] on SID %2 did not finish within the connection timeout of %3 s and was "
        "cancelled; the session is not used again.",
        statement, sid_, util::int_to_str(timeoutSec_));
    env_->GiveUp(text);
    throw COracleCallTimeoutExc(text, static_cast<uint32_t>(code));
}

COracleRoundTrips::CArmed::CArmed(COracleRoundTrips& trips) : trips_(trips)
{
    if (trips_.bound_ != EBound::Watchdog || trips_.unbounded_ > 0)
        return;
    if (!trips_.watchdog_)
        trips_.watchdog_ = std::make_unique<CCallWatchdog>(trips_.env_, trips_.serviceContext_, trips_.sid_);
    trips_.watchdog_->Arm(trips_.timeoutSec_);
    armed_ = true;
}

COracleRoundTrips::CArmed::~CArmed()
{
    if (armed_)
        trips_.watchdog_->Disarm();
}

oci::sword COracleRoundTrips::CArmed::Finish(const std::string& statement, oci::sword status)
{
    if (armed_) {
        broken_ = trips_.watchdog_->Disarm();
        armed_ = false;
    }
    if (status != oci::OCI_ERROR || trips_.bound_ == EBound::None)
        return status;
    const int32_t code = last_error_code(*trips_.env_);
    const bool timedOut = trips_.bound_ == EBound::CallTimeout && trips_.unbounded_ == 0 &&
                          (code == kCallTimedOut || code == kCallTimedOutOld);
    if (timedOut || (broken_ && code == kCallCancelled))
        trips_.RaiseTimeout(statement, code);
    return status;
}

COracleRoundTrips::CUnbounded::CUnbounded(COracleRoundTrips& trips) : trips_(trips)
{
    if (trips_.unbounded_++ > 0 || trips_.bound_ != EBound::CallTimeout)
        return;
    try {
        trips_.env_->Check(trips_.SetCallTimeout(0));
    } catch (...) {
        --trips_.unbounded_;
        throw;
    }
}

COracleRoundTrips::CUnbounded::~CUnbounded()
{
    if (--trips_.unbounded_ > 0 || trips_.bound_ != EBound::CallTimeout || trips_.env_->GivenUp())
        return;
    try {
        if (trips_.SetCallTimeout(to_milliseconds(trips_.timeoutSec_)) != oci::OCI_SUCCESS)
            logging::oralib().warning("Failed to bound the statements on SID %1 again.", trips_.sid_);
    } catch (const std::exception& e) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to bound the statements on SID %1 again.", trips_.sid_), e);
    }
}

} // namespace oracle
} // namespace specific
