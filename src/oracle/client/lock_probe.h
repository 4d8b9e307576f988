#pragma once

#include <windows.h>

namespace specific {
namespace oracle {

// Tells whether a suspended thread may be ended without stranding a lock that
// the whole process needs: the loader lock and the locks of the process's
// heaps.
//
// The loader lock names its owner, so that one is read. The heap locks don't;
// a helper thread takes them one by one and lets them go, so that a lock held
// by the suspended thread costs a short wait here instead of a deadlock. The
// helper holds nothing while it waits, and nothing here allocates once the
// probe is made, so the thread that ends the other one may call it while that
// one is suspended with a heap lock held.
class CLockProbe {
public:
    // The probe of the process; its helper starts with it. Make it before any
    // thread is suspended.
    static CLockProbe& Instance();

    // True when the thread `threadId` doesn't own the loader lock.
    static bool LoaderLockFree(DWORD threadId) noexcept;

    // True when the helper took and let go of every heap lock within `waitMs`
    // (false, too, without a helper). Between two calls let the suspended
    // thread run a little, so that it can let go of what it holds.
    bool HeapsFree(DWORD waitMs) noexcept;

private:
    CLockProbe();
    static DWORD WINAPI ProbeHeaps(LPVOID param);

    HANDLE go_;
    HANDLE done_;
    bool started_ = false;
    bool probePending_ = false;
};

} // namespace oracle
} // namespace specific
