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

// A Win32 thread that the caller waits for with a deadline and may have to
// kill. It is killed only while it stands inside the client library (see
// CClientCallMark): there it holds none of our locks and no lock of the heap
// that we took, so the process goes on working after the kill.
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
    // the client within a short grace is killed where it stands, so the
    // caller's deadline holds. False, with the last error set, when
    // TerminateThread fails.
    bool Terminate();

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
// threw raised again here, with its type. A late one is ended as `late` says,
// and the caller's timeout is raised.
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
