#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "common/ctx/module_info.h"
#include "common/strings/strings.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"
#include "version.h"

// The library is loaded as the agent loads it, in a child process of its own:
// its log starts once per process, and other tests of this executable load the
// same DLL. The child prints what went wrong and ends with 1, or ends with 0.

namespace {

typedef HRESULT(__cdecl* init_lib_t)(const wchar_t*, wchar_t**);
typedef HRESULT(__cdecl* logs_folder_t)(wchar_t**, wchar_t**);
typedef HRESULT(__cdecl* restore_required_t)(bool*, wchar_t**);
typedef void(__cdecl* str_free_t)(wchar_t*);

const wchar_t* const agent_key = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const char* const line_prefix = R"(\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] <[ \d]{5}\d> )";

template <typename F>
F export_of(HMODULE module, const char* name)
{
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

std::vector<std::string> read_lines(const std::wstring& path)
{
    std::ifstream file(util::wide_to_ansi(path), std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find("\r\n", start);
        if (end == std::string::npos)
            end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

// Finds `expected` as consecutive lines of `lines`, each behind the time and
// thread columns; empty when they are there.
std::string find_block(const std::vector<std::string>& lines, const std::vector<std::string>& expected)
{
    const std::regex prefix(line_prefix);
    for (size_t first = 0; first + expected.size() <= lines.size(); ++first) {
        size_t matched = 0;
        while (matched < expected.size()) {
            const std::string& line = lines[first + matched];
            std::smatch columns;
            if (!std::regex_search(line, columns, prefix,
                                   std::regex_constants::match_continuous) ||
                line.substr(static_cast<size_t>(columns.length(0))) != expected[matched])
                break;
            ++matched;
        }
        if (matched == expected.size())
            return std::string();
    }
    std::string report = "not in the log:";
    for (const auto& line : expected)
        report += "\n  " + line;
    return report;
}

std::wstring host_path()
{
    wchar_t path[MAX_PATH + 1] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
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

    HMODULE module = LoadLibraryW(L"orasnap.dll");
    if (module == nullptr)
        return "LoadLibraryW(orasnap.dll) failed";
    const auto init_lib = export_of<init_lib_t>(module, "OracleVssInitLib");
    const auto logs_folder = export_of<logs_folder_t>(module, "OracleGetLogsFolder");
    const auto restore_required = export_of<restore_required_t>(module, "OracleIsRestoreRequired");
    const auto str_free = export_of<str_free_t>(module, "OracleLibStrFree");

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

    const std::vector<std::string> lines = read_lines(log_folder + L"\\agent.log");
    const std::string banner = find_block(lines, {
        "",
        "=============================================================================",
        "{",
        "  Path to the executable module: " + util::wide_to_utf8(host_path()),
        "  Module version: " ORASNAP_VERSION_TEXT,
        "  Comments: " ORASNAP_COMMENTS,
        "  OS version: " + util::get_os_version_text(),
        "  Process Id: " + util::int_to_str(static_cast<uint32_t>(GetCurrentProcessId())),
        "}",
    });
    if (!banner.empty())
        return banner;
    const std::string dump = find_block(lines, {
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
    const std::string answers = find_block(lines, {"oralib| Oracle restore is required: false"}) +
                                find_block(lines, {"oralib| Oracle restore is required: true"});
    if (!answers.empty())
        return answers;
    DeleteFileW((oracle_folder + L"\\OracleMeta.xml").c_str());
    return std::string();
}

void exit_with(const std::string& mismatch)
{
    std::fprintf(stderr, "%s\n", mismatch.c_str());
    std::exit(mismatch.empty() ? 0 : 1);
}

} // namespace

TEST(agent_init, log_starts_with_the_banner_and_the_configuration_dump)
{
    test::temp_folder_t temp;
    EXPECT_EXIT(exit_with(agent_run_mismatch(temp.path())), testing::ExitedWithCode(0), "");
}
