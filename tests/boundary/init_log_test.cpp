#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/ctx/module_info.h"
#include "common/strings/strings.h"
#include "orasnap/orasnap.h"
#include "support/orasnap_library.h"
#include "support/process.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"
#include "version.h"

// The library is loaded as the agent loads it, in a child process of its own:
// its log starts once per process, and other tests of this executable load the
// same DLL. The child prints what went wrong and ends with 1, or ends with 0.

namespace {

const wchar_t* const agent_key = L"SOFTWARE\\Brelm\\Brelm Safeguard";

// The log's lines, each cut behind its time and thread columns and ended by
// "\n"; a line without those columns or its "\r\n" is marked so nothing matches it.
std::string log_body(const std::wstring& path)
{
    const std::regex columns(R"(\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] <[ \d]{5}\d> )");
    std::ifstream file(util::wide_to_ansi(path), std::ios::binary);
    std::string body = "\n";
    std::string line;
    std::smatch found;
    while (std::getline(file, line)) {
        const bool whole = !line.empty() && line.back() == '\r';
        if (whole)
            line.pop_back();
        if (whole && std::regex_search(line, found, columns, std::regex_constants::match_continuous))
            body += line.substr(static_cast<size_t>(found.length(0))) + "\n";
        else
            body += "<unframed> " + line + "\n";
    }
    return body;
}

// Empty when `expected` stands as consecutive lines in `body`.
std::string missing(const std::string& body, const std::vector<std::string>& expected)
{
    std::string block = "\n";
    for (const auto& line : expected)
        block += line + "\n";
    return body.find(block) == std::string::npos ? "not in the log:" + block : std::string();
}

std::string agent_run_mismatch(const std::wstring& folder)
{
    const std::wstring log_folder = folder + L"\\agent logs";
    const std::wstring oracle_folder = folder + L"\\oracle\\temp";
    test::registry_sandbox_t registry;
    registry.set_string(agent_key, L"LogDirectory", log_folder);
    registry.set_string(agent_key, L"OracleTempLogPath", oracle_folder);
    // Every value away from its default, so each name read shows in the dump;
    // DetectAsmInstancesByQuery is not read from the registry.
    registry.set_dword(agent_key, L"OracleConnectionTimeout", 0xFFFFFFFFu);
    registry.set_dword(agent_key, L"OracleRestoreWaitInSec", 0);
    registry.set_dword(agent_key, L"OracleAgentTtlSec", 7);
    registry.set_dword(agent_key, L"OracleWaitDbStartedAttemptCount", 3);
    registry.set_dword(agent_key, L"CheckAsmLogFileExistence", 2);
    registry.set_dword(agent_key, L"SupportOracle10", 1);
    registry.set_dword(agent_key, L"OracleStageLogsBeforeBackup", 1);
    registry.set_dword(agent_key, L"DisableOracleProcessing", 1);
    registry.set_dword(agent_key, L"DetectAsmInstancesByQuery", 0);
    registry.set_dword(agent_key, L"UseOracleAutostartOption", 1);
    registry.set_dword(agent_key, L"OracleSkipNoArchiveLogDB", 1);
    registry.set_dword(agent_key, L"DeleteOracleAbsentLogFiles", 0);

    const test::library_t library;
    const auto init_lib = ORASNAP_EXPORT(library, OracleVssInitLib);
    const auto logs_folder = ORASNAP_EXPORT(library, OracleGetLogsFolder);
    const auto restore_required = ORASNAP_EXPORT(library, OracleIsRestoreRequired);
    const auto str_free = ORASNAP_EXPORT(library, OracleLibStrFree);

    wchar_t* error = nullptr;
    if (init_lib(L"agent.log", &error) != S_OK)
        return "OracleVssInitLib failed: " + util::wide_to_utf8(error != nullptr ? error : L"");

    wchar_t* folder_text = nullptr;
    if (logs_folder(&folder_text, &error) != S_OK)
        return "OracleGetLogsFolder failed: " + util::wide_to_utf8(error != nullptr ? error : L"");
    const std::wstring reported_folder = folder_text;
    str_free(folder_text);
    if (reported_folder != oracle_folder)
        return "logs folder: " + util::wide_to_utf8(reported_folder);

    bool required = true;
    if (restore_required(&required, &error) != S_OK || required)
        return "restore required before any prepare";
    std::ofstream(util::wide_to_ansi(oracle_folder + L"\\OracleMeta.xml")) << "<restore/>";
    required = false;
    if (restore_required(&required, &error) != S_OK || !required)
        return "restore not required with the metadata file";

    const std::string lines = log_body(log_folder + L"\\agent.log");
    const std::string banner = missing(lines, {
        "cli| LOG: Initializing log file ...",
        "",
        "=============================================================================",
        "{",
        "  Path to the executable module: " + util::wide_to_utf8(test::exe_path()),
        "  Module version: 1.2.3.4",
        "  Comments: test host of the orasnap library",
        "  OS version: " + util::get_os_version_text(),
        "  Process Id: " + util::int_to_str(static_cast<uint32_t>(GetCurrentProcessId())),
        "}",
        "orasnap library version: " ORASNAP_VERSION_TEXT " (" ORASNAP_BUILD_TEXT ")",
    });
    if (!banner.empty())
        return banner;
    const std::string dump = missing(lines, {
        "oralib| Oracle agent config:",
        "oralib| ConnectionTimeoutSec: -1",
        "oralib| OracleRestoreWaitInSec: 0",
        "oralib| OracleAgentTtlSec: 7",
        "oralib| WaitDbStartedAttemptCount: 3",
        "oralib| CheckAsmLogFileExistence: true",
        "oralib| SupportOracle10: true",
        "oralib| OracleStageLogsBeforeBackup: true",
        "oralib| DisableOracleProcessing: true",
        "oralib| DetectAsmInstancesByQuery: true",
        "oralib| UseAutostartOption: true",
        "oralib| OracleSkipNoArchiveLogDB: true",
        "oralib| OracleTempLogPath: " + util::wide_to_ansi(oracle_folder),
        "oralib| DeleteOracleAbsentLogFiles: false",
        "oralib| =======================",
    });
    if (!dump.empty())
        return dump;
    const std::string answers = missing(lines, {"oralib| Oracle restore is required: false"}) +
                                missing(lines, {"oralib| Oracle restore is required: true"});
    if (!answers.empty())
        return answers;
    DeleteFileW((oracle_folder + L"\\OracleMeta.xml").c_str());
    return std::string();
}

// Four threads make the first call at once: one log file, one opening note,
// one configuration dump.
std::string racing_init_mismatch(const std::wstring& folder)
{
    test::registry_sandbox_t registry;
    registry.set_string(agent_key, L"LogDirectory", folder);
    const test::library_t library;
    const auto init_lib = ORASNAP_EXPORT(library, OracleVssInitLib);
    std::atomic<int> waiting{4};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            --waiting;
            while (waiting > 0)
                std::this_thread::yield();
            wchar_t* error = nullptr;
            init_lib(L"conc.log", &error);
        });
    for (auto& thread : threads)
        thread.join();
    if (GetFileAttributesW((folder + L"\\conc.1.log").c_str()) != INVALID_FILE_ATTRIBUTES)
        return "a second log file was opened";
    const std::string body = log_body(folder + L"\\conc.log");
    for (const std::string line : {"\ncli| LOG: Initializing log file ...\n",
                                   "\noralib| Oracle agent config:\n"}) {
        if (body.find(line) == std::string::npos || body.find(line) != body.rfind(line))
            return "not once in the log:" + line;
    }
    return std::string();
}

void exit_with(const std::string& mismatch)
{
    std::fprintf(stderr, "%s\n", mismatch.c_str());
    std::exit(mismatch.empty() ? 0 : 1);
}

} // namespace

TEST(AgentInit, LogStartsWithItsOpeningNoteTheBannerAndTheConfigurationDump)
{
    test::temp_folder_t temp;
    EXPECT_EXIT(exit_with(agent_run_mismatch(temp.path())), testing::ExitedWithCode(0), "");
}

TEST(AgentInit, FirstCallsRacingFromFourThreadsStartTheLogOnce)
{
    test::temp_folder_t temp;
    EXPECT_EXIT(exit_with(racing_init_mismatch(temp.path())), testing::ExitedWithCode(0), "");
}
