#include "oracle/client/guarded_thread.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/last_error.h"
#include "oracle/client/lock_probe.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/seh_guard.h"
#include "oracle/client/thread_stack.h"

#include <atomic>
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

// How long a late thread may keep being seen with a lock the process needs
// before it is ended anyway, and how long one look at the heap locks may take.
constexpr ULONGLONG kLockProbeBudgetMs = 150;
constexpr DWORD kLockProbeWaitMs = 2;
// How long a thread in the system is given to come back to its trap; one that
// doesn't is blocked there, and the locks decide.
constexpr ULONGLONG kTrapWaitMs = 40;

// Where a guarded thread stands, in its flag.
constexpr LONG kOutsideClient = 0;
constexpr LONG kInClientCall = 1;
constexpr LONG kInClientLoad = 2;
constexpr LONG kInTrap = 3;

// The longest single wait; INFINITE, one more, would never end.
constexpr DWORD kLongestWaitMs = INFINITE - 1;

// The slot holds, on a guarded thread, the address of its "in client" flag.
DWORD client_flag_slot()
{
    static const DWORD slot = TlsAlloc();
    return slot;
}

// A process whose shadow stacks the processor enforces ends at a return whose
// address was rewritten: there no trap is set, and the locks alone decide.
// Looked up by name, as the call is missing before Windows 8.
bool return_addresses_enforced()
{
    using get_policy_t = BOOL(WINAPI*)(HANDLE, PROCESS_MITIGATION_POLICY, PVOID, SIZE_T);
    static const bool enforced = [] {
        const auto get = reinterpret_cast<get_policy_t>(reinterpret_cast<void (*)()>(
            GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetProcessMitigationPolicy")));
        PROCESS_MITIGATION_USER_SHADOW_STACK_POLICY policy{};
        return get != nullptr && get(GetCurrentProcess(), ProcessUserShadowStackPolicy, &policy, sizeof policy) &&
               policy.EnableUserShadowStack;
    }();
    return enforced;
}

bool has_ended(HANDLE thread)
{
    return WaitForSingleObject(thread, 0) == WAIT_OBJECT_0;
}

// Suspends `thread`; the context read makes sure the suspension has taken
// effect before its flag or its stack are looked at.
bool suspend(HANDLE thread)
{
    if (SuspendThread(thread) == static_cast<DWORD>(-1))
        return false;
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    GetThreadContext(thread, &context);
    return true;
}

std::atomic<bool>& client_load_hung()
{
    static std::atomic<bool> hung{false};
    return hung;
}

// One late thread is ended at a time: the lock probe has one helper.
SRWLOCK& termination_lock()
{
    static SRWLOCK lock = SRWLOCK_INIT;
    return lock;
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
    const EThreadEnd end = thread.Terminate();
    const DWORD error = GetLastError();
    late.abandon();
    if (end == EThreadEnd::TerminateFailed)
        throw exc::win_sys_exc_t(late.terminateFailed, id, error);
    if (end == EThreadEnd::LeftInLoad) {
        client_load_hung() = true;
        logging::oralib().error("Thread %1 is still starting the Oracle client, which holds the "
                                "loader lock: the thread is left running, and the client is not "
                                "loaded again in this process.",
                                id);
        return;
    }
    operation.ok();
}

} // namespace

// Where a late thread that was let run out of the system returns to, instead
// of the code that called the system: it stands there holding nothing of the
// system's, says so in its flag and waits to be ended. The stack is aligned
// afresh, as it comes here by a return, not a call.
extern "C" [[noreturn]] void orasnap_safe_point_reached()
{
    if (auto* flag = static_cast<volatile LONG*>(TlsGetValue(client_flag_slot())))
        InterlockedExchange(flag, kInTrap);
    for (;;)
        Sleep(INFINITE);
}

extern "C" void orasnap_safe_point_trap();
// MSVC has no inline assembly on x64: there the trap is safe_point_trap.asm.
#if defined(__GNUC__)
asm(".text\n"
    ".globl orasnap_safe_point_trap\n"
    "orasnap_safe_point_trap:\n"
    "    andq $-16, %rsp\n"
    "    subq $32, %rsp\n"
    "    call orasnap_safe_point_reached\n"
    "    int3\n");
#endif

CClientCallMark::CClientCallMark() noexcept
    : flag_(static_cast<volatile LONG*>(TlsGetValue(client_flag_slot())))
{
    if (flag_ != nullptr)
        InterlockedExchange(flag_, kInClientCall);
}

CClientCallMark::~CClientCallMark()
{
    if (flag_ != nullptr)
        InterlockedExchange(flag_, kOutsideClient);
}

CClientLoadMark::CClientLoadMark() noexcept
    : flag_(static_cast<volatile LONG*>(TlsGetValue(client_flag_slot())))
{
    if (flag_ != nullptr)
        InterlockedExchange(flag_, kInClientLoad);
}

CClientLoadMark::~CClientLoadMark()
{
    if (flag_ != nullptr)
        InterlockedExchange(flag_, kOutsideClient);
}

bool CClientLoadMark::LoadHung() noexcept
{
    return client_load_hung();
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

EThreadEnd CGuardedThread::Terminate()
{
    if (state_->inClient == kInClientLoad && !has_ended(handle_.get()))
        return EThreadEnd::LeftInLoad;
    // The probe and the map are made before the thread is first suspended:
    // from then on nothing on this thread may allocate until the thread is
    // gone or running again.
    CLockProbe& probe = CLockProbe::Instance();
    const CModuleMap modules(reinterpret_cast<const void*>(&CGuardedThread::Run));
    const bool mayTrap = !return_addresses_enforced();
    AcquireSRWLockExclusive(&termination_lock());
    auto unlock = win::scope_exit([] { ReleaseSRWLockExclusive(&termination_lock()); });
    const ULONGLONG graceEnd = GetTickCount64() + kSafePointGraceMs;
    ULONGLONG probeEnd = 0;
    ULONGLONG trapSetAt = 0;
    for (;;) {
        if (has_ended(handle_.get()))
            return EThreadEnd::Ended;
        const bool suspended = suspend(handle_.get());
        const LONG where = state_->inClient;
        if (where == kInClientLoad) {
            if (suspended)
                ResumeThread(handle_.get());
            return EThreadEnd::LeftInLoad;
        }
        const ULONGLONG now = GetTickCount64();
        if (where != kOutsideClient || now >= graceEnd) {
            if (probeEnd == 0)
                probeEnd = now + kLockProbeBudgetMs;
            bool free = where == kInTrap;
            if (!free && suspended) {
                const SStackView stack = ReadStack(handle_.get(), modules);
                if (mayTrap && stack.returnSlot != nullptr && (trapSetAt == 0 || now < trapSetAt + kTrapWaitMs)) {
                    // In the system: once it has let go of what it holds
                    // there, it comes back to the trap instead of its caller.
                    *stack.returnSlot = reinterpret_cast<uint64_t>(&orasnap_safe_point_trap);
                    if (trapSetAt == 0)
                        trapSetAt = now;
                } else {
                    // Outside the system, or blocked in it for good.
                    free = !stack.waitsForLock && CLockProbe::LoaderLockFree(id_) &&
                           probe.HeapsFree(kLockProbeWaitMs);
                }
            }
            if (free || !suspended || GetTickCount64() >= probeEnd) {
                if (!TerminateThread(handle_.get(), kTimeoutExitCode)) {
                    const DWORD error = GetLastError();
                    if (suspended)
                        ResumeThread(handle_.get());
                    SetLastError(error);
                    return EThreadEnd::TerminateFailed;
                }
                WaitForSingleObject(handle_.get(), INFINITE);
                if (!free)
                    logging::oralib().warning(
                        "Thread %1 was ended while it may have held the loader lock or a heap "
                        "lock: the process may be unstable.",
                        thread_id_text(id_));
                return EThreadEnd::Ended;
            }
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
