#pragma once

#include "common/win/handle.h"

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>

namespace specific {
namespace oracle {

// Marks the calling thread as being inside the client library for the life
// of the object. Every call into OCI is bracketed by one; on a thread that
// isn't a CGuardedThread it does nothing.
class CClientCallMark {
public:
    CClientCallMark() noexcept;
    ~CClientCallMark();
    CClientCallMark(const CClientCallMark&) = delete;
    CClientCallMark& operator=(const CClientCallMark&) = delete;

private:
    volatile LONG* flag_;
};

// Marks the calling thread as loading the client library for the life of the
// object. The library's start runs under the loader lock, which no
// termination could give back: a guarded thread that is late in here is left
// alone, and from then on the load counts as hung for the rest of the process.
class CClientLoadMark {
public:
    CClientLoadMark() noexcept;
    ~CClientLoadMark();
    CClientLoadMark(const CClientLoadMark&) = delete;
    CClientLoadMark& operator=(const CClientLoadMark&) = delete;

    // True once a late thread was left inside the load.
    static bool LoadHung() noexcept;

private:
    volatile LONG* flag_;
};

// How a late thread was dealt with.
enum class EThreadEnd {
    Ended,          // it is gone, with exit code 1460
    LeftInLoad,     // it stands in the client's load and was left running
    TerminateFailed // TerminateThread failed; the last error says why
};

// A Win32 thread that the caller waits for with a deadline and may have to
// kill. It is killed only while it stands inside the client library (see
// CClientCallMark), where it holds none of our locks, and only while it holds
// no lock that the whole process needs (see CLockProbe), so the process goes
// on working after the kill.
class CGuardedThread {
public:
    // Starts `body` at once. `body` must not throw. Raises exc::win_sys_exc_t
    // when the thread can't be created.
    explicit CGuardedThread(std::function<void()> body);
    ~CGuardedThread();
    CGuardedThread(const CGuardedThread&) = delete;
    CGuardedThread& operator=(const CGuardedThread&) = delete;

    // Waits until the thread ends or `timeoutSec` seconds pass (none when 0 or
    // less). True when it ended.
    bool Join(int32_t timeoutSec);

    // Ends the thread with exit code 1460 (ERROR_TIMEOUT) at its next stay in
    // the client, and waits for it to be gone. A thread that doesn't reach
    // the client within a short grace is ended where it stands, so the
    // caller's deadline holds. Before the kill it is suspended until it is
    // seen holding, and waiting for, neither the loader lock nor a heap lock;
    // one that is busy in the system is let run back out of it into a trap.
    // One that is never seen free is killed all the same after a bounded
    // time, and the log says that the process may be unstable. A thread in
    // the client's load is not killed at all.
    EThreadEnd Terminate();

    HANDLE Handle() const { return handle_.get(); }
    DWORD Id() const { return id_; }

private:
    struct SState;
    static DWORD WINAPI Run(LPVOID param);

    SState* state_;
    win::unique_handle_t handle_;
    DWORD id_ = 0;
};

// What a caller says and does about its thread once the deadline has passed.
struct SLateThread {
    // The log operation that ends the thread, and the failure raised when it
    // can't be ended; "%1" stands for the thread's id in hex.
    std::string terminating;
    std::string terminateFailed;
    // Marks the thread's work abandoned, so that its client handles are never
    // touched again. Called once the end was tried, whether it worked or not.
    std::function<void()> abandon;
    // Raises the caller's own timeout, once the thread is gone.
    std::function<void()> raiseTimeout;
};

// Runs `body` on a CGuardedThread and waits for it no longer than
// `timeoutSec` seconds (not at all for 0 or less; the deadline is counted in
// 64 bits, so no value wraps). A thread that ends in time has what `body`
// threw raised again here, with its type. A late one is ended as `late` says
// (or left in the client's load, which the log explains), and the caller's
// timeout is raised.
void RunWithDeadline(int32_t timeoutSec, std::function<void()> body, const SLateThread& late);

// Runs `body` under the structured exception guard: a fault inside the client
// (an access violation, say, or the COracleClientCrashExc of a guarded client
// call) raises COracleExc with `failure`, where "%1" stands for the exception
// code in hex, instead of ending the process; `onFault` runs
// first (to abandon the session, say). What `body` throws is raised again
// here. Objects of the frames between the fault and the guard are not
// destroyed, so `body` should hold nothing that must be released.
void RunUnderFaultGuard(const std::function<void()>& body, const std::string& failure,
                        const std::function<void()>& onFault);

} // namespace oracle
} // namespace specific
