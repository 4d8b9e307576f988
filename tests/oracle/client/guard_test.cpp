#include "oracle/client/guarded_thread.h"
#include "oracle/client/seh_guard.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <stdexcept>
#include <string>

using namespace specific::oracle;

namespace {

// An event owned by the test; the thread under test blocks on it the way a
// hung client call blocks in a wait.
struct SEvent {
    SEvent() : handle(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~SEvent() { CloseHandle(handle); }
    HANDLE handle;
};

DWORD exit_code(const CGuardedThread& thread)
{
    DWORD code = 0;
    GetExitCodeThread(thread.Handle(), &code);
    return code;
}

void write_null(void*)
{
    *static_cast<volatile int*>(nullptr) = 1;
}

void raise_custom(void*)
{
    RaiseException(0xE0001234, 0, 0, nullptr);
}

void return_normally(void* arg)
{
    *static_cast<int*>(arg) = 42;
}

void throw_cpp(void*)
{
    throw std::runtime_error("through the guard");
}

} // namespace



TEST(GuardedThread, ThreadHungInsideTheClientIsKilledAtOnceWithTimeoutCode)
{
    SEvent never;
    std::atomic<bool> entered{false};
    CGuardedThread thread([&] {
        CClientCallMark mark;
        entered = true;
        WaitForSingleObject(never.handle, INFINITE);
    });
    while (!entered)
        Sleep(1);
    const ULONGLONG start = GetTickCount64();
    EXPECT_TRUE(thread.Terminate());
    EXPECT_LT(GetTickCount64() - start, 400u);
    EXPECT_EQ(exit_code(thread), 1460u);
}

TEST(GuardedThread, ThreadOutsideTheClientIsKilledOnlyOnceItEntersIt)
{
    SEvent never;
    std::atomic<bool> started{false};
    std::atomic<bool> reachedClient{false};
    CGuardedThread thread([&] {
        started = true;
        const ULONGLONG busyUntil = GetTickCount64() + 200;
        while (GetTickCount64() < busyUntil) {
        }
        CClientCallMark mark;
        reachedClient = true;
        WaitForSingleObject(never.handle, INFINITE);
    });
    while (!started)
        Sleep(1);
    EXPECT_TRUE(thread.Terminate());
    EXPECT_TRUE(reachedClient);
    EXPECT_EQ(exit_code(thread), 1460u);
}

TEST(GuardedThread, ThreadThatNeverReachesTheClientIsKilledAfterTheGrace)
{
    SEvent never;
    std::atomic<bool> started{false};
    CGuardedThread thread([&] {
        started = true;
        WaitForSingleObject(never.handle, INFINITE);
    });
    while (!started)
        Sleep(1);
    const ULONGLONG start = GetTickCount64();
    EXPECT_TRUE(thread.Terminate());
    const ULONGLONG took = GetTickCount64() - start;
    EXPECT_GE(took, 400u);
    EXPECT_LT(took, 1500u);
    EXPECT_EQ(exit_code(thread), 1460u);
}

TEST(SehGuard, FaultsEndTheCallWithTheirCodeAndANormalReturnGivesZero)
{
    EXPECT_EQ(orasnap_seh_guarded_call(&write_null, nullptr), 0xC0000005ul);
    EXPECT_EQ(orasnap_seh_guarded_call(&raise_custom, nullptr), 0xE0001234ul);
    int value = 0;
    EXPECT_EQ(orasnap_seh_guarded_call(&return_normally, &value), 0ul);
    EXPECT_EQ(value, 42);
}



TEST(SehGuard, CppExceptionPassesThroughToTheCallersCatch)
{
    std::string caught;
    try {
        orasnap_seh_guarded_call(&throw_cpp, nullptr);
    } catch (const std::runtime_error& e) {
        caught = e.what();
    }
    EXPECT_EQ(caught, "through the guard");
}

