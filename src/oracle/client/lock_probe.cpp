#include "oracle/client/lock_probe.h"

#if defined(_MSC_VER)
#include <intrin.h>
#endif

namespace specific {
namespace oracle {

namespace {

// More heaps than this are rare; the first ones are the process heap and the
// C runtime's, which are what our code allocates from.
constexpr DWORD kMostHeaps = 64;

// Where the thread's block keeps the process environment block, and where that
// keeps the address of the loader lock, on x64; its OwningThread holds the
// owner's thread id.
constexpr size_t kPebLoaderLockOffset = 0x110;
constexpr unsigned long kTebPebOffset = 0x60;

void take_and_leave_heap_locks()
{
    HANDLE heaps[kMostHeaps];
    DWORD count = GetProcessHeaps(kMostHeaps, heaps);
    if (count > kMostHeaps)
        count = kMostHeaps;
    for (DWORD i = 0; i < count; ++i) {
        if (HeapLock(heaps[i]))
            HeapUnlock(heaps[i]);
    }
}

} // namespace

CLockProbe& CLockProbe::Instance()
{
    // Never destroyed: its helper lives as long as the process.
    static CLockProbe* const probe = new CLockProbe;
    return *probe;
}

CLockProbe::CLockProbe()
    : go_(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      done_(CreateEventW(nullptr, FALSE, FALSE, nullptr))
{
    if (go_ != nullptr && done_ != nullptr) {
        const HANDLE helper = CreateThread(nullptr, 0, &CLockProbe::ProbeHeaps, this, 0, nullptr);
        started_ = helper != nullptr;
        if (started_)
            CloseHandle(helper);
    }
}

DWORD WINAPI CLockProbe::ProbeHeaps(LPVOID param)
{
    auto* probe = static_cast<CLockProbe*>(param);
    for (;;) {
        WaitForSingleObject(probe->go_, INFINITE);
        take_and_leave_heap_locks();
        SetEvent(probe->done_);
    }
}

bool CLockProbe::LoaderLockFree(DWORD threadId) noexcept
{
#if defined(_MSC_VER)
    const auto* peb = reinterpret_cast<const char*>(__readgsqword(kTebPebOffset));
#else
    // GCC's __readgsqword trips its own array-bounds warning.
    const char* peb = nullptr;
    asm("movq %%gs:%c1, %0" : "=r"(peb) : "i"(kTebPebOffset));
#endif
    const auto* loaderLock =
        *reinterpret_cast<RTL_CRITICAL_SECTION* const*>(peb + kPebLoaderLockOffset);
    return HandleToULong(loaderLock->OwningThread) != threadId;
}

bool CLockProbe::HeapsFree(DWORD waitMs) noexcept
{
    if (!started_)
        return false;
    // A probe that outlived its wait ran while the thread was free to take
    // locks again: its answer says nothing now, but it must end first.
    if (probePending_) {
        if (WaitForSingleObject(done_, waitMs) != WAIT_OBJECT_0)
            return false;
        probePending_ = false;
    }
    SetEvent(go_);
    probePending_ = true;
    if (WaitForSingleObject(done_, waitMs) != WAIT_OBJECT_0)
        return false;
    probePending_ = false;
    return true;
}

} // namespace oracle
} // namespace specific
