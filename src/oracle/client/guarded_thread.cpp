#include "oracle/client/guarded_thread.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/last_error.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/seh_guard.h"

#include <cstdio>
#include <memory>
#include <utility>

namespace specific {
namespace oracle {

namespace {

// How long a late thread may take to reach its next client call before it is
// killed wherever it stands. Our own code between two client calls runs for
// microseconds; only a thread stuck on a lock that an earlier kill left held
// needs the grace to run out.
constexpr DWORD kSafePointGraceMs = 500;

constexpr DWORD kTimeoutExitCode = 1460;

// The longest single wait; INFINITE, one more, would never end.
constexpr DWORD kLongestWaitMs = INFINITE - 1;

// The slot holds, on a guarded thread, the address of its "in client" flag.
DWORD client_flag_slot()
{
    static const DWORD slot = TlsAlloc();
    return slot;
}

bool has_ended(HANDLE thread)
{
    return WaitForSingleObject(thread, 0) == WAIT_OBJECT_0;
}

std::string thread_id_text(DWORD id)
{
    char text[32] = "{Not-any-thread}";
    if (id != 0)
        std::snprintf(text, sizeof(text), "%lx", static_cast<unsigned long>(id));
    return text;
}

void end_late_thread(CGuardedThread& thread, const SLateThread& late)
{
    const std::string id = thread_id_text(thread.Id());
    logging::log_operation_t operation(logging::oralib(), util::format_msg(late.terminating, id));
    const bool ended = thread.Terminate();
    const DWORD error = GetLastError();
    late.abandon();
    if (!ended)
        throw exc::win_sys_exc_t(late.terminateFailed, id, error);
    operation.ok();
}

} // namespace

CClientCallMark::CClientCallMark() noexcept
    : flag_(static_cast<volatile LONG*>(TlsGetValue(client_flag_slot())))
{
    if (flag_ != nullptr)
        InterlockedExchange(flag_, 1);
}

CClientCallMark::~CClientCallMark()
{
    if (flag_ != nullptr)
        InterlockedExchange(flag_, 0);
}

struct CGuardedThread::SState {
    std::function<void()> body;
    volatile LONG inClient = 0;
};

CGuardedThread::CGuardedThread(std::function<void()> body) : state_(new SState)
{
    auto dropState = win::scope_exit([this] { delete state_; });
    state_->body = std::move(body);
    client_flag_slot();
    handle_.reset(CreateThread(nullptr, 0, &CGuardedThread::Run, state_, 0, &id_));
    if (!handle_)
        win::throw_last_error("Failed to create thread.");
    dropState.dismiss();
}

CGuardedThread::~CGuardedThread()
{
    // A thread that is still running (its kill failed) may yet touch its
    // state: that is left to the end of the process.
    if (has_ended(handle_.get()))
        delete state_;
}

DWORD WINAPI CGuardedThread::Run(LPVOID param)
{
    auto* state = static_cast<SState*>(param);
    TlsSetValue(client_flag_slot(), const_cast<LONG*>(&state->inClient));
    state->body();
    TlsSetValue(client_flag_slot(), nullptr);
    return 0;
}

bool CGuardedThread::Join(int32_t timeoutSec)
{
    // In 64 bits: a timeout of 4,294,968 s or more has more milliseconds than
    // a DWORD holds, so the wait goes in slices up to the deadline.
    const ULONGLONG waitMs = timeoutSec > 0 ? static_cast<ULONGLONG>(timeoutSec) * 1000u : 0u;
    const ULONGLONG deadline = GetTickCount64() + waitMs;
    for (;;) {
        const ULONGLONG now = GetTickCount64();
        const ULONGLONG left = now < deadline ? deadline - now : 0;
        const DWORD slice = left < kLongestWaitMs ? static_cast<DWORD>(left) : kLongestWaitMs;
        if (WaitForSingleObject(handle_.get(), slice) == WAIT_OBJECT_0)
            return true;
        if (slice == left)
            return false;
    }
}

bool CGuardedThread::Terminate()
{
    const ULONGLONG graceEnd = GetTickCount64() + kSafePointGraceMs;
    for (;;) {
        if (has_ended(handle_.get()))
            return true;
        const bool graceOver = GetTickCount64() >= graceEnd;
        const bool suspended = SuspendThread(handle_.get()) != static_cast<DWORD>(-1);
        if (suspended) {
            // The context read makes sure the suspension has taken effect
            // before the flag is trusted.
            CONTEXT context = {};
            context.ContextFlags = CONTEXT_CONTROL;
            GetThreadContext(handle_.get(), &context);
        }
        if (state_->inClient != 0 || graceOver) {
            if (!TerminateThread(handle_.get(), kTimeoutExitCode)) {
                const DWORD error = GetLastError();
                if (suspended)
                    ResumeThread(handle_.get());
                SetLastError(error);
                return false;
            }
            WaitForSingleObject(handle_.get(), INFINITE);
            return true;
        }
        if (suspended)
            ResumeThread(handle_.get());
        Sleep(1);
    }
}

void RunWithDeadline(int32_t timeoutSec, std::function<void()> body, const SLateThread& late)
{
    // Shared with the thread: one whose end fails may still write it after
    // this call has gone.
    const auto error = std::make_shared<std::shared_ptr<exc::exc_base_t>>();
    CGuardedThread thread([body = std::move(body), error] {
        try {
            body();
        } catch (const std::exception& e) {
            *error = exc::to_exc_ptr(e);
        }
    });
    if (!thread.Join(timeoutSec)) {
        end_late_thread(thread, late);
        late.raiseTimeout();
    }
    if (*error)
        (*error)->rethrow();
}

namespace {

// What the guarded body raised, carried out of the guard's frame: a C++
// exception must not cross it.
struct SGuardedBody {
    const std::function<void()>* body;
    std::shared_ptr<exc::exc_base_t> error;
};

void run_guarded_body(void* arg)
{
    auto* guarded = static_cast<SGuardedBody*>(arg);
    try {
        (*guarded->body)();
    } catch (const std::exception& caught) {
        guarded->error = exc::to_exc_ptr(caught);
    }
}

} // namespace

void RunUnderFaultGuard(const std::function<void()>& body, const std::string& failure,
                        const std::function<void()>& onFault)
{
    SGuardedBody guarded{&body, nullptr};
    unsigned long code = orasnap_seh_guarded_call(&run_guarded_body, &guarded);
    // A crash that the client call's own guard caught counts as one caught here.
    if (const auto* crash = dynamic_cast<const COracleClientCrashExc*>(guarded.error.get()))
        code = crash->code();
    if (code != 0) {
        onFault();
        throw COracleExc(util::format_msg(failure, util::hex_str(static_cast<uint32_t>(code))));
    }
    if (guarded.error)
        guarded.error->rethrow();
}

} // namespace oracle
} // namespace specific
