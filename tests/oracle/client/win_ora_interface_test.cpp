#include "oracle/client/win_ora_interface.h"

#include "common/win/handle.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/session_holder.h"
#include "support/capturing_receiver.h"
#include "support/process.h"
#include "support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <fstream>

using namespace specific::oracle;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// Set in the child process that runs in a folder of its own: the path of a
// file to write once its checks have passed.
const wchar_t kChildMarkerVariable[] = L"ORASNAP_TEST_NO_CLIENT_MARKER";

// In the child: the holder fails as a session that could not be made, and the
// log block of the failed load gives its cause and ends with the operator's hint.
void check_holder_fails_to_load(const testing::Matcher<const std::string&>& cause)
{
    test::log_capture_t log;
    std::string text;
    try {
        COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false);
        ADD_FAILURE() << "no exception";
    } catch (const COracleSessionCreateExc& e) {
        text = e.what();
    }
    EXPECT_EQ(text, "Failed to create oracle session holder.\n"
                    "--tr:Failed to create oracle session holder. SID: ORCL.");
    const auto lines = log.texts();
    const auto block = std::find(lines.begin(), lines.end(), "oralib| ERR |Failed to load OCI library");
    ASSERT_GE(std::distance(block, lines.end()), 4) << "no load failure in the log";
    EXPECT_THAT(block[1], cause);
    EXPECT_THAT(block[2], testing::StartsWith("oralib| >>  |An exception was thrown from thread ["));
    EXPECT_EQ(block[3], "oralib| >>  |Hint: the Oracle client was looked for as [OCI.dll]. It must be "
                        "a 64-bit client, and the folders on PATH decide which OCI.dll is found.");
}

// Runs `test` again in a copy of this executable, started in a folder of its
// own where `client` (a library built beside the tests) is the only OCI.dll to
// be found, or none when it is empty.
void run_in_own_folder(const std::wstring& test, const std::wstring& client)
{
    test::temp_folder_t folder;
    const std::wstring copy = folder.file(L"client_test.exe");
    const std::wstring childMarker = folder.file(L"passed.txt");
    ASSERT_TRUE(CopyFileW(test::exe_path().c_str(), copy.c_str(), TRUE));
    if (!client.empty()) {
        ASSERT_TRUE(CopyFileW((test::exe_folder() + client).c_str(), folder.file(L"OCI.dll").c_str(), TRUE));
    }
    std::wstring commandLine = L"\"" + copy + L"\" --gtest_filter=OracleClientLibrary." + test;
    test::set_process_env(kChildMarkerVariable, childMarker);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    const BOOL started = CreateProcessW(copy.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0,
                                        nullptr, folder.path().c_str(), &startup, &process);
    test::set_process_env(kChildMarkerVariable, L"");
    ASSERT_TRUE(started) << GetLastError();
    const win::unique_handle_t thread(process.hThread);
    const win::unique_handle_t child(process.hProcess);
    EXPECT_EQ(WaitForSingleObject(child.get(), 60000), WAIT_OBJECT_0);
    DWORD exitCode = 1;
    GetExitCodeProcess(child.get(), &exitCode);
    EXPECT_EQ(exitCode, 0u);
    EXPECT_NE(GetFileAttributesW(childMarker.c_str()), INVALID_FILE_ATTRIBUTES);
}

// True in the child, which runs `check` and leaves its marker when it passed.
template <typename Check>
bool ran_as_child(Check check)
{
    const std::wstring marker = test::env_value(kChildMarkerVariable);
    if (marker.empty())
        return false;
    check();
    if (!testing::Test::HasFailure())
        std::ofstream(marker.c_str()) << "passed";
    return true;
}

} // namespace

TEST(OracleClientLibrary, MissingLibraryEndsAsSessionCreateErrorWithItsLogLine)
{
    if (!ran_as_child([] {
            ASSERT_EQ(GetModuleHandleW(L"OCI.dll"), nullptr);
            check_holder_fails_to_load(StartsWith("oralib| >>  |Cannot load [OCI.dll]: "));
        }))
        run_in_own_folder(L"MissingLibraryEndsAsSessionCreateErrorWithItsLogLine", L"");
}

TEST(OracleClientLibrary, ClientThatFaultsAsItLoadsEndsAsSessionCreateError)
{
    // A loader that catches the fault fails the load itself (Wine answers
    // ERROR_NOACCESS); one that lets it through meets the guard around the load.
    if (!ran_as_child([] {
            check_holder_fails_to_load(testing::AnyOf(
                StartsWith("oralib| >>  |Cannot load [OCI.dll]: "),
                "oralib| >>  |Loading [OCI.dll] raised the structured exception 0xc0000005."));
        }))
        run_in_own_folder(L"ClientThatFaultsAsItLoadsEndsAsSessionCreateError",
                          L"faulting_client.dll");
}

TEST(OracleClientLibrary, ClientThatHangsAsItStartsIsGivenUpAtTheDeadlineAndNeverLoadedAgain)
{
    const bool child = ran_as_child([] {
        test::log_capture_t log;
        ULONGLONG start = GetTickCount64();
        EXPECT_THROW(COracleSessionHolder(L"ORCL", L"C:\\h", {}, false), COracleInitTimeoutExc);
        // The connection timeout of these tests is 1 s.
        EXPECT_LT(GetTickCount64() - start, 1250u);
        const auto lines = log.texts();
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("is still starting the Oracle client, which holds the loader lock: the "
                             "thread is left running, and the client is not loaded again in this "
                             "process.") != std::string::npos;
        }));
        start = GetTickCount64();
        std::string text;
        try {
            COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false);
        } catch (const COracleClientLoadExc& e) {
            text = e.what();
        }
        EXPECT_LT(GetTickCount64() - start, 100u);
        EXPECT_EQ(text, "The Oracle client [OCI.dll] hung as it started, holding the loader lock: "
                        "it is not loaded again in this process.\n"
                        "--tr:Failed to create oracle session holder. SID: ORCL.");
    });
    if (!child)
        run_in_own_folder(L"ClientThatHangsAsItStartsIsGivenUpAtTheDeadlineAndNeverLoadedAgain",
                          L"hanging_client.dll");
    else
        // An orderly exit would wait for the loader lock for ever.
        TerminateProcess(GetCurrentProcess(), testing::Test::HasFailure() ? 1 : 0);
}

TEST(OracleClientLibrary, LibraryWithoutTheEntryPointsIsRefusedByName)
{
    try {
        CWinOraInterface::Load(L"kernel32.dll");
        FAIL() << "no exception";
    } catch (const COracleClientLoadExc& e) {
        EXPECT_THAT(e.what(), HasSubstr("The function OCIEnvCreate is missing in ["));
    }
}

