#include "oracle/client/guarded_thread.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/seh_guard.h"
#include "support/capturing_receiver.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

using namespace specific::oracle;

TEST(GuardedThread, HungThreadIsKilledWithTheTimeoutCodeAtItsStayInTheClientOrAfterTheGrace)
{
    struct SCase {
        const char* what;
        DWORD busyMs;      // spent outside the client before entering it
        bool entersClient;
        bool killInClient; // terminate only once the thread stands in the client
        ULONGLONG minMs;
        ULONGLONG maxMs;
    };
    const SCase cases[] = {
        {"hung inside the client: at once", 0, true, true, 0, 400},
        {"busy outside, then inside: once it enters", 200, true, false, 0, 1500},
        {"never inside: after the grace", 0, false, false, 400, 1500},
    };
    // An event nobody sets: the thread blocks on it the way a hung client call does.
    const HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (const SCase& c : cases) {
        std::atomic<bool> started{false};
        std::atomic<bool> inClient{false};
        CGuardedThread thread([&] {
            started = true;
            const ULONGLONG busyUntil = GetTickCount64() + c.busyMs;
            while (GetTickCount64() < busyUntil) {
            }
            if (c.entersClient) {
                CClientCallMark mark;
                inClient = true;
                WaitForSingleObject(never, INFINITE);
            }
            WaitForSingleObject(never, INFINITE);
        });
        while (!(c.killInClient ? inClient : started))
            Sleep(1);
        const ULONGLONG start = GetTickCount64();
        EXPECT_EQ(thread.Terminate(), EThreadEnd::Ended) << c.what;
        const ULONGLONG took = GetTickCount64() - start;
        EXPECT_GE(took, c.minMs) << c.what;
        EXPECT_LT(took, c.maxMs) << c.what;
        EXPECT_EQ(inClient.load(), c.entersClient) << c.what;
        DWORD code = 0;
        GetExitCodeThread(thread.Handle(), &code);
        EXPECT_EQ(code, 1460u) << c.what;
    }
    CloseHandle(never);
}

TEST(GuardedThread, LateThreadsThatKeepTakingProcessLocksAreEndedWithoutStrandingThem)
{
    const HMODULE client = LoadLibraryW(L"churning_client.dll");
    ASSERT_NE(client, nullptr);
    test::log_capture_t log;
    const SLateThread late{"Terminating thread %1", "Failed to terminate thread %1", [] {},
                           [] { throw std::runtime_error("late"); }};
    for (const char* name : {"churn_heap", "churn_loader"}) {
        const auto churn = reinterpret_cast<void (*)()>(
            reinterpret_cast<void*>(GetProcAddress(client, name)));
        ASSERT_NE(churn, nullptr) << name;
        std::vector<ULONGLONG> took;
        for (int i = 0; i < 200; ++i) {
            const ULONGLONG start = GetTickCount64();
            // A deadline of 0 s: the thread is ended as soon as it stands in the client.
            EXPECT_THROW(RunWithDeadline(0, [churn] { CClientCallMark mark; churn(); }, late),
                         std::runtime_error);
            took.push_back(GetTickCount64() - start);
            // A lock left held or miscounted would hang one of these for good.
            HeapFree(GetProcessHeap(), 0, HeapAlloc(GetProcessHeap(), 0, 100000 + i));
            const std::string text(1000 + i, 'x');
            const HMODULE library = LoadLibraryW(L"msimg32.dll");
            ASSERT_NE(library, nullptr);
            FreeLibrary(library);
        }
        std::sort(took.begin(), took.end());
        EXPECT_LE(took.back(), 250u) << name << ": median " << took[took.size() / 2] << " ms";
        std::printf("%s: termination median %llu ms, max %llu ms\n", name, took[took.size() / 2],
                    took.back());
    }
    for (const std::string& line : log.texts())
        EXPECT_EQ(line.find("may be unstable"), std::string::npos) << line;
}

namespace {

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

TEST(SehGuard, FaultsEndTheCallWithTheirCodeAndCppExceptionsPassThrough)
{
    EXPECT_EQ(orasnap_seh_guarded_call(&raise_custom, nullptr), 0xE0001234ul);
    int value = 0;
    EXPECT_EQ(orasnap_seh_guarded_call(&return_normally, &value), 0ul);
    EXPECT_EQ(value, 42);
    std::string caught;
    try {
        orasnap_seh_guarded_call(&throw_cpp, nullptr);
    } catch (const std::runtime_error& e) {
        caught = e.what();
    }
    EXPECT_EQ(caught, "through the guard");
}

TEST(RunWithDeadline, DeadlinesBeyondFortyNineDaysDoNotWrapAndTheThreadsFailureComesBackTyped)
{
    // 4,294,968 s is 4,294,968,000 ms: counted in 32 bits that is a 0.7 s deadline.
    const SLateThread late{"Terminating thread %1", "Failed to terminate thread %1",
                           [] { ADD_FAILURE() << "abandoned"; },
                           [] { throw std::runtime_error("late"); }};
    bool finished = false;
    RunWithDeadline(4294968, [&] { Sleep(1000); finished = true; }, late);
    EXPECT_TRUE(finished);

    std::string caught;
    try {
        RunWithDeadline(4294968, [] { throw COracleExc("refused", 1017); }, late);
    } catch (const COracleExc& e) {
        caught = std::string(e.what()) + " " + std::to_string(e.code());
    }
    EXPECT_EQ(caught, "refused 1017");
}
