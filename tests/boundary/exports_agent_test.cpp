// Drives orasnap.dll the way the backup agent does: loaded by name, every entry
// point resolved with GetProcAddress, texts released through OracleLibStrFree.
#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "orasnap/orasnap.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace {

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kLogName[] = L"orasnap_agent_test.log";

// Stands in a text cell until the library writes one; compared by address.
wchar_t kUntouched[] = L"untouched";

template <typename Function>
Function resolve(HMODULE module, const char* name)
{
    // Through void(*)(): the one function pointer type a FARPROC converts to without a warning.
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

// The entry point of the loaded library, typed by the public header's declaration.
#define DLL(name) resolve<decltype(&name)>(module_, #name)

// The library is loaded once for the suite, inside a registry sandbox that sends
// its log to a private folder and sets an empty logs folder, as an agent's
// configuration may.
class AgentCalls : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        folder_ = new test::temp_folder_t();
        sandbox_ = new test::registry_sandbox_t();
        sandbox_->set_string(kConfigKey, L"LogDirectory", folder_->path());
        sandbox_->set_string(kConfigKey, L"OracleTempLogPath", L"");
        module_ = LoadLibraryW(L"orasnap.dll");
    }

    static void TearDownTestSuite()
    {
        if (module_ != nullptr)
            FreeLibrary(module_);
        module_ = nullptr;
        delete sandbox_;
        sandbox_ = nullptr;
        delete folder_;
        folder_ = nullptr;
    }

    void SetUp() override { ASSERT_NE(module_, nullptr) << "LoadLibraryW(orasnap.dll) failed"; }

    // Reads a text the library allocated and gives it back through OracleLibStrFree.
    static std::wstring take(wchar_t* text)
    {
        if (text == kUntouched)
            return L"<untouched>";
        if (text == nullptr)
            return L"<null>";
        std::wstring copy(text);
        DLL(OracleLibStrFree)(text);
        return copy;
    }

    static std::string log_text()
    {
        std::ifstream file(folder_->file(kLogName).c_str(), std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    static test::temp_folder_t* folder_;
    static test::registry_sandbox_t* sandbox_;
    static HMODULE module_;
};

test::temp_folder_t* AgentCalls::folder_ = nullptr;
test::registry_sandbox_t* AgentCalls::sandbox_ = nullptr;
HMODULE AgentCalls::module_ = nullptr;

} // namespace

TEST_F(AgentCalls, StopWithoutInitSucceedsAndWritesNoText)
{
    wchar_t* error = kUntouched;
    EXPECT_EQ(DLL(OracleVssStopLib)(&error), S_OK);
    EXPECT_EQ(error, kUntouched);
}

TEST_F(AgentCalls, EmptyResultIsAOneCharacterBuffer)
{
    wchar_t* result = kUntouched;
    wchar_t* error = kUntouched;
    ASSERT_EQ(DLL(OracleGetLogsFolder)(&result, &error), S_OK);
    EXPECT_EQ(error, kUntouched);
    ASSERT_NE(result, kUntouched);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result[0], L'\0');
    DLL(OracleLibStrFree)(result);
}

TEST_F(AgentCalls, InitAfterAnInitOrAStopChangesNothing)
{
    wchar_t* error = kUntouched;
    ASSERT_EQ(DLL(OracleVssInitLib)(kLogName, &error), S_OK) << take(error).c_str();
    EXPECT_EQ(DLL(OracleVssInitLib)(L"another.log", &error), S_OK);
    EXPECT_EQ(DLL(OracleVssStopLib)(&error), S_OK);
    EXPECT_EQ(DLL(OracleVssInitLib)(L"another.log", &error), S_OK);
    EXPECT_EQ(error, kUntouched);
    EXPECT_EQ(GetFileAttributesW(folder_->file(L"another.log").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_NE(log_text().find("Oracle agent config:"), std::string::npos);
}

TEST_F(AgentCalls, CallerGetsTheErrorTextAndTheLogGetsTheExportLiteral)
{
    wchar_t* error = kUntouched;
    ASSERT_EQ(DLL(OracleVssInitLib)(kLogName, &error), S_OK);
    wchar_t* result = kUntouched;
    EXPECT_EQ(DLL(OracleExploreInstances)(true, L"sys", L"secret", L"", &result, &error), E_FAIL);
    EXPECT_EQ(result, kUntouched);
    EXPECT_EQ(take(error), L"Exploring Oracle instances is not built yet.\n"
                           L"--tr:Oracle manager failed to explore Oracle instances");
    EXPECT_NE(log_text().find("oralib| ERR |Failed to explore oracle instances.\r\n"), std::string::npos);
}

TEST_F(AgentCalls, UnknownOrEmptySidIsNotSkipped)
{
    for (const wchar_t* sid : {L"NOSUCHSID", L""}) {
        unsigned char cells[2] = {0x5A, 0xA5};
        wchar_t* error = kUntouched;
        EXPECT_EQ(DLL(OracleShouldSkipVssWriter)(sid, reinterpret_cast<bool*>(cells), &error), S_OK);
        EXPECT_EQ(cells[0], 0) << "the bool cell was not written with false";
        EXPECT_EQ(cells[1], 0xA5) << "more than one byte was written";
        EXPECT_EQ(error, kUntouched);
    }
}

TEST_F(AgentCalls, VssStaysEnabledOnAMachineWithoutOracle)
{
    unsigned char cells[2] = {0x5A, 0xA5};
    wchar_t* error = kUntouched;
    EXPECT_EQ(DLL(OracleCheckVssFunctionality)(reinterpret_cast<bool*>(cells), &error), S_OK);
    EXPECT_EQ(cells[0], 1);
    EXPECT_EQ(cells[1], 0xA5) << "more than one byte was written";
    EXPECT_EQ(error, kUntouched);
}

TEST_F(AgentCalls, GatheringWithoutEntriesFailsWithAClearText)
{
    wchar_t* result = kUntouched;
    wchar_t* error = kUntouched;
    EXPECT_EQ(DLL(OracleGatherVssInfo)(nullptr, nullptr, &result, &error), E_FAIL);
    EXPECT_EQ(result, kUntouched);
    EXPECT_EQ(take(error), L"No Oracle VSS entries were gathered.");
}

TEST_F(AgentCalls, MalformedDocumentsFailWithTheParserText)
{
    wchar_t* error = kUntouched;
    EXPECT_EQ(DLL(OracleFinishDbsBackup)(L"<databases>", L"", L"", &error), E_FAIL);
    EXPECT_EQ(take(error), L"XML error: [Error reading Element value.]. Error code: [5].\n"
                           L"--tr:Failed to parse XML content. Source content: [<databases>].\n"
                           L"--tr:Oracle manager failed to finish dbs backup");

    error = kUntouched;
    EXPECT_EQ(DLL(OracleRemoveLogsInTemp)(L"", &error), E_FAIL);
    EXPECT_EQ(take(error), L"XML error: [Error document empty.]. Error code: [12].\n"
                           L"--tr:Failed to parse XML content. Source content: [].\n"
                           L"--tr:Oracle manager failed to remove logs in temp");
}

TEST_F(AgentCalls, OperationsStillToComeFailWithATextNamingThem)
{
    wchar_t* result = kUntouched;
    wchar_t* error = kUntouched;
    const auto first_line = [](wchar_t* text) {
        const std::wstring whole = take(text);
        return whole.substr(0, whole.find(L'\n'));
    };

    EXPECT_EQ(DLL(OracleBackupLogs)(L"C:\\ora", L"ORCL", L"1", L"0", L"", L"", &result, &error), E_FAIL);
    EXPECT_EQ(first_line(error), L"Backing up archived logs is not built yet.");
    EXPECT_EQ(DLL(OracleEnumLogs)(&result, &error), E_FAIL);
    EXPECT_EQ(first_line(error), L"Enumerating the logs folder is not built yet.");
    EXPECT_EQ(DLL(OraclePrepareDbsForBackup)(L"", L"", L"", L"", L"", L"", &result, &error), E_FAIL);
    EXPECT_EQ(first_line(error), L"Preparing databases for backup is not built yet.");
    EXPECT_EQ(DLL(OracleDeleteLogsByTime)(L"C:\\ora", L"ORCL", 60, L"", L"", &error), E_FAIL);
    EXPECT_EQ(first_line(error), L"Deleting archived logs by time is not built yet.");
    EXPECT_EQ(DLL(OracleDeleteLogsBySize)(L"C:\\ora", L"ORCL", 1u << 30, L"", L"", &error), E_FAIL);
    EXPECT_EQ(first_line(error), L"Deleting archived logs by size is not built yet.");
    EXPECT_EQ(DLL(OracleDoRestore)(&error), E_FAIL);
    EXPECT_EQ(first_line(error), L"Restoring databases is not built yet.");
    EXPECT_EQ(result, kUntouched);
}

TEST_F(AgentCalls, RestoreIsRequiredExactlyWhileTheMetadataFileExists)
{
    // The configured logs folder is empty, so the metadata file is looked for in
    // the working folder.
    const wchar_t metaPath[] = L"OracleMeta.xml";
    ASSERT_EQ(GetFileAttributesW(metaPath), INVALID_FILE_ATTRIBUTES);
    unsigned char cell = 0x5A;
    wchar_t* error = kUntouched;
    EXPECT_EQ(DLL(OracleIsRestoreRequired)(reinterpret_cast<bool*>(&cell), &error), S_OK);
    EXPECT_EQ(cell, 0);

    HANDLE file = CreateFileW(metaPath, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
    EXPECT_EQ(DLL(OracleIsRestoreRequired)(reinterpret_cast<bool*>(&cell), &error), S_OK);
    DeleteFileW(metaPath);
    EXPECT_EQ(cell, 1);
    EXPECT_EQ(error, kUntouched);
}

TEST_F(AgentCalls, ConsoleTestOnAMachineWithoutOracleSucceeds)
{
    wchar_t* error = kUntouched;
    EXPECT_EQ(DLL(OracleTest)(nullptr, nullptr, kLogName, &error), S_OK);
    EXPECT_EQ(error, kUntouched);
}
