// Drives orasnap.dll the way the backup agent does: loaded by name, every entry
// point resolved with GetProcAddress, texts released through OracleLibStrFree.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "orasnap/orasnap.h"
#include "support/orasnap_library.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"
#include "version.h"

namespace {

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kLogName[] = L"orasnap_agent_test.log";

wchar_t* const kUntouched = test::untouched_text;

// The entry point of the loaded library, typed by the public header's declaration.
#define DLL(name) ORASNAP_EXPORT(*library_, name)

std::wstring version_string(const std::vector<BYTE>& block, const wchar_t* name)
{
    void* value = nullptr;
    UINT length = 0;
    const std::wstring path = std::wstring(L"\\StringFileInfo\\040904B0\\") + name;
    if (!VerQueryValueW(block.data(), path.c_str(), &value, &length) || length == 0)
        return L"<missing>";
    return static_cast<const wchar_t*>(value);
}

std::wstring widen(const std::string& text)
{
    return std::wstring(text.begin(), text.end());
}

// The library is loaded once for the suite, inside a registry sandbox that sends
// its log to a private folder and sets an empty logs folder, as an agent's
// configuration may.
class AgentCalls : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        folder_ = std::make_unique<test::temp_folder_t>();
        sandbox_ = std::make_unique<test::registry_sandbox_t>();
        sandbox_->set_string(kConfigKey, L"LogDirectory", folder_->path());
        sandbox_->set_string(kConfigKey, L"OracleTempLogPath", L"");
        sandbox_->set_dword(kConfigKey, L"OracleRestoreWaitInSec", 0);
        library_ = std::make_unique<test::library_t>();
    }

    static void TearDownTestSuite()
    {
        library_.reset();
        sandbox_.reset();
        folder_.reset();
    }

    static std::wstring take(wchar_t* text) { return library_->take(text); }

    static std::string log_text() { return test::read_file_text(folder_->file(kLogName)); }

    static inline std::unique_ptr<test::temp_folder_t> folder_;
    static inline std::unique_ptr<test::registry_sandbox_t> sandbox_;
    static inline std::unique_ptr<test::library_t> library_;
};

} // namespace

TEST_F(AgentCalls, ExportsExactlyTheEighteenEntryPointsAndCarriesTheBuildVersion)
{
    std::vector<std::string> expected = {
        "OracleVssInitLib",       "OracleVssStopLib",          "OracleGatherVssInfo",
        "OracleShouldSkipVssWriter", "OracleCheckVssFunctionality", "OracleLibStrFree",
        "OracleExploreInstances", "OracleBackupLogs",          "OracleEnumLogs",
        "OraclePrepareDbsForBackup", "OracleFinishDbsBackup",  "OracleDeleteLogsByTime",
        "OracleDeleteLogsBySize", "OracleRemoveLogsInTemp",    "OracleIsRestoreRequired",
        "OracleDoRestore",        "OracleGetLogsFolder",       "OracleTest",
    };
    const auto* base = reinterpret_cast<const BYTE*>(library_->module());
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(
        base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    ASSERT_NE(dir.VirtualAddress, 0u);
    const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + dir.VirtualAddress);
    const auto* nameRvas = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    std::vector<std::string> exported;
    for (DWORD i = 0; i < exports->NumberOfNames; ++i)
        exported.emplace_back(reinterpret_cast<const char*>(base + nameRvas[i]));
    std::sort(expected.begin(), expected.end());
    std::sort(exported.begin(), exported.end());
    EXPECT_EQ(exported, expected);

    wchar_t path[MAX_PATH] = {};
    ASSERT_NE(GetModuleFileNameW(library_->module(), path, MAX_PATH), 0u);
    std::vector<BYTE> block(GetFileVersionInfoSizeW(path, nullptr));
    ASSERT_FALSE(block.empty());
    ASSERT_TRUE(GetFileVersionInfoW(path, 0, static_cast<DWORD>(block.size()), block.data()));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT fixedLength = 0;
    ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &fixedLength));
    EXPECT_EQ(fixed->dwFileVersionMS, static_cast<DWORD>(MAKELONG(ORASNAP_VERSION_MINOR, ORASNAP_VERSION_MAJOR)));
    EXPECT_EQ(fixed->dwFileVersionLS, static_cast<DWORD>(MAKELONG(ORASNAP_VERSION_TWEAK, ORASNAP_VERSION_PATCH)));
    EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));
    EXPECT_EQ(version_string(block, L"FileVersion"), widen(ORASNAP_VERSION_TEXT));
    EXPECT_EQ(version_string(block, L"Comments"), widen(ORASNAP_COMMENTS));
}

TEST_F(AgentCalls, StopWithoutInitAndFreeingNullDoNothing)
{
    wchar_t* error = kUntouched;
    EXPECT_EQ(DLL(OracleVssStopLib)(&error), S_OK);
    EXPECT_EQ(error, kUntouched);
    DLL(OracleLibStrFree)(nullptr);
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

TEST_F(AgentCalls, AnswersWriteOnlyTheirOwnCellsOnAMachineWithoutOracle)
{
    // Each bool answer writes one byte and no error text; the empty logs folder
    // is a one-character buffer; OracleMeta.xml is looked for in the working folder.
    ASSERT_EQ(GetFileAttributesW(L"OracleMeta.xml"), INVALID_FILE_ATTRIBUTES);
    const auto cells = [](unsigned char functional, unsigned char skip, unsigned char restore) {
        return std::vector<unsigned char>{functional, 0xA5, skip, 0xA5, restore, 0xA5};
    };
    std::vector<unsigned char> seen = cells(0x5A, 0x5A, 0x5A);
    wchar_t* error = kUntouched;
    EXPECT_EQ(DLL(OracleCheckVssFunctionality)(reinterpret_cast<bool*>(&seen[0]), &error), S_OK);
    for (const wchar_t* sid : {L"NOSUCHSID", L""}) {
        seen[2] = 0x5A;
        EXPECT_EQ(DLL(OracleShouldSkipVssWriter)(sid, reinterpret_cast<bool*>(&seen[2]), &error), S_OK);
    }
    EXPECT_EQ(DLL(OracleIsRestoreRequired)(reinterpret_cast<bool*>(&seen[4]), &error), S_OK);
    EXPECT_EQ(seen, cells(1, 0, 0));
    wchar_t* result = kUntouched;
    ASSERT_EQ(DLL(OracleGetLogsFolder)(&result, &error), S_OK);
    ASSERT_NE(result, kUntouched);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result[0], L'\0');
    DLL(OracleLibStrFree)(result);
    ASSERT_EQ(DLL(OracleExploreInstances)(true, L"sys", L"secret", L"", &result, &error), S_OK);
    EXPECT_EQ(take(result), L"<OracleOverall />\n");
    EXPECT_EQ(DLL(OracleTest)(nullptr, nullptr, kLogName, &error), S_OK);
    EXPECT_EQ(error, kUntouched);
}

TEST_F(AgentCalls, FailuresGiveTheCallerTheTraceAndTheLogTheExportLiteral)
{
    wchar_t* error = kUntouched;
    ASSERT_EQ(DLL(OracleVssInitLib)(kLogName, &error), S_OK);
    wchar_t* result = kUntouched;
    EXPECT_EQ(DLL(OracleGatherVssInfo)(nullptr, nullptr, &result, &error), E_FAIL);
    EXPECT_EQ(take(error), L"No Oracle VSS entries were gathered.");
    EXPECT_EQ(DLL(OracleFinishDbsBackup)(L"<databases>", L"", L"", &error), E_FAIL);
    EXPECT_EQ(take(error), L"XML error: [Error reading Element value.]. Error code: [5].\n"
                           L"--tr:Failed to parse XML content. Source content: [<databases>].\n"
                           L"--tr:Failed to finish dbs backup\n"
                           L"--tr:Oracle manager failed to finish dbs backup");
    EXPECT_EQ(DLL(OracleRemoveLogsInTemp)(L"", &error), E_FAIL);
    EXPECT_EQ(take(error), L"XML error: [Error document empty.]. Error code: [12].\n"
                           L"--tr:Failed to parse XML content. Source content: [].\n"
                           L"--tr:Failed to save oracle log description\n"
                           L"--tr:Oracle manager failed to remove logs in temp");

    const auto first_line = [](wchar_t* text) {
        const std::wstring whole = take(text);
        return whole.substr(0, whole.find(L'\n'));
    };
    const auto last_line = [](wchar_t* text) {
        const std::wstring whole = take(text);
        return whole.substr(whole.rfind(L'\n') + 1);
    };
    // No simulated server is named here: every call that needs a session fails
    // making it. Deletion by size reports the trace line of deletion by time.
    EXPECT_EQ(DLL(OracleDeleteLogsBySize)(L"C:\\ora", L"ORCL", 1u << 30, L"", L"", &error), E_FAIL);
    EXPECT_EQ(last_line(error), L"--tr:Oracle manager failed to delete archived logs by time");
    EXPECT_EQ(DLL(OracleBackupLogs)(L"C:\\ora", L"ORCL", L"1", L"0", L"", L"", &result, &error), E_FAIL);
    EXPECT_EQ(last_line(error), L"--tr:Oracle manager failed to backup archived logs");
    // A writer list with an entry that names no SID fails before any database is touched.
    EXPECT_EQ(DLL(OraclePrepareDbsForBackup)(L"<databases><database /></databases>", L"", L"", L"", L"", L"",
                                             &result, &error),
              E_FAIL);
    EXPECT_EQ(first_line(error), L"Attribute value is not specified. Attribute: [sid].");
    EXPECT_EQ(DLL(OracleDeleteLogsByTime)(L"C:\\ora", L"ORCL", 60, L"", L"", &error), E_FAIL);
    EXPECT_EQ(last_line(error), L"--tr:Oracle manager failed to delete archived logs by time");
    // Without a metadata file there is no document to restore from.
    EXPECT_EQ(DLL(OracleDoRestore)(&error), E_FAIL);
    EXPECT_EQ(last_line(error), L"--tr:Oracle manager failed to do db restore");
    EXPECT_EQ(result, kUntouched);

    const std::string log = log_text();
    for (const char* line : {"oralib| Deleting oracle logs by size. Sid: ORCL\r\n",
                             "oralib| ERR |Failed to delete oracle logs by size\r\n"})
        EXPECT_NE(log.find(line), std::string::npos) << line;
}

TEST_F(AgentCalls, NullTextsAreEmptyTextsAndANullNeededCellIsRefusedWithOneLogLine)
{
    wchar_t* error = kUntouched;
    ASSERT_EQ(DLL(OracleVssInitLib)(kLogName, &error), S_OK);
    wchar_t* result = kUntouched;
    bool flag = false;
    using call_t = std::function<HRESULT(wchar_t** errorText)>;
    const std::pair<const char*, call_t> nullCells[] = {
        {"OracleGatherVssInfo: the argument result",
         [](wchar_t** e) { return DLL(OracleGatherVssInfo)(nullptr, nullptr, nullptr, e); }},
        {"OracleShouldSkipVssWriter: the argument skip",
         [](wchar_t** e) { return DLL(OracleShouldSkipVssWriter)(L"ORCL", nullptr, e); }},
        {"OracleCheckVssFunctionality: the argument functional",
         [](wchar_t** e) { return DLL(OracleCheckVssFunctionality)(nullptr, e); }},
        {"OracleExploreInstances: the argument result",
         [](wchar_t** e) { return DLL(OracleExploreInstances)(true, L"", L"", L"", nullptr, e); }},
        {"OracleBackupLogs: the argument result",
         [](wchar_t** e) {
             return DLL(OracleBackupLogs)(L"", L"", L"", L"", L"", L"", nullptr, e);
         }},
        {"OracleEnumLogs: the argument result",
         [](wchar_t** e) { return DLL(OracleEnumLogs)(nullptr, e); }},
        {"OraclePrepareDbsForBackup: the argument result",
         [](wchar_t** e) {
             return DLL(OraclePrepareDbsForBackup)(L"", L"", L"", L"", L"", L"", nullptr, e);
         }},
        {"OracleIsRestoreRequired: the argument required",
         [](wchar_t** e) { return DLL(OracleIsRestoreRequired)(nullptr, e); }},
        {"OracleGetLogsFolder: the argument result",
         [](wchar_t** e) { return DLL(OracleGetLogsFolder)(nullptr, e); }},
    };
    for (const auto& [name, call] : nullCells) {
        const std::string line = std::string(name) + " is a null pointer.";
        const size_t logged = log_text().size();
        EXPECT_EQ(call(&error), E_POINTER) << name;
        EXPECT_EQ(take(error), widen(line));
        // Nothing but the one line, whose time and thread columns are cut here.
        const std::string added = log_text().substr(logged);
        EXPECT_EQ(added.substr(std::min(added.size(), added.find("oralib| "))),
                  "oralib| ERR |" + line + "\r\n");
        EXPECT_EQ(call(nullptr), E_POINTER) << name;
    }

    // Each call gives with null texts what it gives with empty ones, and a
    // failure with no errorText wanted is only logged.
    const std::function<HRESULT(const wchar_t*, wchar_t**)> textCalls[] = {
        [&](auto t, auto e) { return DLL(OracleShouldSkipVssWriter)(t, &flag, e); },
        [](auto t, auto e) {
            wchar_t* document = nullptr;
            const HRESULT hr = DLL(OracleExploreInstances)(true, t, t, t, &document, e);
            DLL(OracleLibStrFree)(document);
            return hr;
        },
        [&](auto t, auto e) { return DLL(OracleBackupLogs)(t, t, t, t, t, t, &result, e); },
        [](auto t, auto e) {
            wchar_t* document = nullptr;
            const HRESULT hr = DLL(OraclePrepareDbsForBackup)(t, t, t, t, t, t, &document, e);
            DLL(OracleLibStrFree)(document);
            // With the empty logs folder its metadata lands in the working folder.
            DeleteFileW(L"OracleMeta.xml");
            return hr;
        },
        [](auto t, auto e) { return DLL(OracleFinishDbsBackup)(t, t, t, e); },
        [](auto t, auto e) { return DLL(OracleDeleteLogsByTime)(t, t, 60, t, t, e); },
        [](auto t, auto e) { return DLL(OracleDeleteLogsBySize)(t, t, 1, t, t, e); },
        [](auto t, auto e) { return DLL(OracleRemoveLogsInTemp)(t, e); },
    };
    for (size_t i = 0; i < std::size(textCalls); ++i) {
        wchar_t* withEmpty = kUntouched;
        wchar_t* withNull = kUntouched;
        const HRESULT expected = textCalls[i](L"", &withEmpty);
        EXPECT_EQ(textCalls[i](nullptr, &withNull), expected) << i;
        EXPECT_EQ(take(withNull), take(withEmpty)) << i;
        EXPECT_EQ(textCalls[i](nullptr, nullptr), expected) << i;
    }
    EXPECT_EQ(result, kUntouched);
}
