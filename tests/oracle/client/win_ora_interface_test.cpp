#include "oracle/client/win_ora_interface.h"

#include "oracle/client/oracle_exc.h"
#include "oracle/client/session_holder.h"
#include "support/capturing_receiver.h"
#include "support/process.h"
#include "support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>

using namespace specific::oracle;
using testing::Contains;
using testing::HasSubstr;

namespace {

// Set in the child process that runs without a client library beside it: the
// path of a file to write once its checks have passed.
const wchar_t kChildMarkerVariable[] = L"ORASNAP_TEST_NO_CLIENT_MARKER";

void check_holder_without_client()
{
    ASSERT_EQ(GetModuleHandleW(L"OCI.dll"), nullptr);
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
    EXPECT_THAT(log.texts(), Contains(HasSubstr("Failed to load OCI library")));
    EXPECT_THAT(log.receiver->all(), HasSubstr("Cannot load [OCI.dll]"));
}

} // namespace

TEST(OracleClientLibrary, MissingLibraryEndsAsSessionCreateErrorWithItsLogLine)
{
    const std::wstring marker = test::env_value(kChildMarkerVariable);
    if (!marker.empty()) {
        check_holder_without_client();
        if (!testing::Test::HasFailure())
            std::ofstream(marker.c_str()) << "passed";
        return;
    }

    // The client is found beside the executable; a copy of this executable in
    // a folder of its own, started there, has none to find.
    test::temp_folder_t folder;
    const std::wstring copy = folder.file(L"no_client.exe");
    const std::wstring childMarker = folder.file(L"passed.txt");
    ASSERT_TRUE(CopyFileW(test::exe_path().c_str(), copy.c_str(), TRUE));
    std::wstring commandLine =
        L"\"" + copy + L"\" --gtest_filter=OracleClientLibrary.MissingLibraryEndsAsSessionCreateErrorWithItsLogLine";
    test::set_process_env(kChildMarkerVariable, childMarker);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    const BOOL started = CreateProcessW(copy.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0,
                                        nullptr, folder.path().c_str(), &startup, &process);
    test::set_process_env(kChildMarkerVariable, L"");
    ASSERT_TRUE(started) << GetLastError();
    EXPECT_EQ(WaitForSingleObject(process.hProcess, 60000), WAIT_OBJECT_0);
    DWORD exitCode = 1;
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    EXPECT_EQ(exitCode, 0u);
    EXPECT_NE(GetFileAttributesW(childMarker.c_str()), INVALID_FILE_ATTRIBUTES);
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

