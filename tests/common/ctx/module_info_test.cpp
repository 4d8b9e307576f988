#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>
#include <regex>
#include <string>

#include "common/ctx/module_info.h"
#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "support/failure_lines.h"
#include "support/temp_folder.h"

namespace {

struct name_row_t {
    util::os_traits_t traits;
    const char* name;
};

const BYTE ws = VER_NT_WORKSTATION;
const BYTE server = VER_NT_SERVER;
const WORD x86 = PROCESSOR_ARCHITECTURE_INTEL;
const WORD x64 = PROCESSOR_ARCHITECTURE_AMD64;

const name_row_t name_rows[] = {
    {{5, 0, ws, 0, x86, false}, "Windows 2000"},
    {{5, 1, ws, 0, x64, false}, "Windows XP"},
    {{5, 2, ws, 0, x64, true}, "Windows XP Professional x64 Edition"},
    {{5, 2, ws, VER_SUITE_WH_SERVER, x86, true}, "Windows Home Server"},
    {{5, 2, server, 0, x64, true}, "Windows Server 2003 R2"},
    {{5, 2, server, 0, x64, false}, "Windows Server 2003"},
    {{6, 0, ws, 0, x64, false}, "Windows Vista"},
    {{6, 3, server, 0, x64, false}, "Windows Server 2012 R2"},
    {{6, 4, ws, 0, x64, false}, "Windows 10"},
    {{10, 0, server, 0, x64, false}, "Windows Server 2016"},
    {{10, 0, VER_NT_DOMAIN_CONTROLLER, 0, x64, true}, "Windows Server 2016"},
    {{6, 5, ws, 0, x64, false}, "Unknown Windows 6.5"},
    {{11, 0, ws, 0, x64, false}, "Unknown Windows 11.0"},
};

TEST(OsVersionName, NamesTheSystemFromItsNumbersAndProduct)
{
    for (const name_row_t& row : name_rows)
        EXPECT_EQ(row.name, util::os_version_name(row.traits)) << row.name;
}

TEST(OsVersionText, AddsNumbersAndServicePackOnlyWhenThereIsOneAlsoForTheRunningSystem)
{
    EXPECT_EQ("Windows Server 2012 R2 (6.3.9600)",
              util::os_version_text("Windows Server 2012 R2", 6, 3, 9600, 0, 0));
    EXPECT_EQ("Windows 7 (6.1.7601) Service Pack 1",
              util::os_version_text("Windows 7", 6, 1, 7601, 1, 0));
    EXPECT_EQ("Windows XP (5.1.2600) Service Pack 2.1",
              util::os_version_text("Windows XP", 5, 1, 2600, 2, 1));
    EXPECT_EQ("Unknown Windows 12.3 (12.3.1) Service Pack 0.4",
              util::os_version_text("Unknown Windows 12.3", 12, 3, 1, 0, 4));
    const std::string text = util::get_os_version_text();
    EXPECT_EQ(0u, text.find(util::get_os_version_name() + " (")) << text;
    EXPECT_TRUE(std::regex_match(text, std::regex(R"(Windows .+ \(\d+\.\d+\.\d+\)( Service Pack \d+(\.\d+)?)?)")))
        << text;
}

TEST(OsVersionSearch, PassesPlainMismatchesAndStopsAtAnotherErrorOrTheLimit)
{
    int calls = 0;
    auto match_at = [&](DWORD hit, DWORD failing) {
        calls = 0;
        return [&calls, hit, failing](DWORD value, DWORD& error) {
            ++calls;
            error = value == failing ? ERROR_ACCESS_DENIED : value % 2 == 0 ? ERROR_OLD_WIN_VERSION : 0;
            return value == hit;
        };
    };
    EXPECT_EQ(7, util::search_version_value(100, match_at(7, 1000)));
    EXPECT_EQ(8, calls);
    EXPECT_EQ(-1, util::search_version_value(100, match_at(50, 4)));
    EXPECT_EQ(5, calls);
    EXPECT_EQ(-1, util::search_version_value(100000, match_at(100000, 100000)));
    EXPECT_EQ(100000, calls);
}

// Our own version and comments reach the log banner, checked end to end.
TEST(ModuleVersion, GivesEmptyCommentsWhenAbsentAndNamesAFileWithoutResource)
{
    test::temp_folder_t temp;
    const std::wstring path = temp.file(L"not-a-module.dll");
    std::ofstream(util::wide_to_ansi(path), std::ios::binary) << "not a module";
    for (auto read : {&util::get_version_string, &util::get_comments}) {
        const auto lines = test::failure_lines([&] { read(path); });
        EXPECT_THAT(lines, testing::Contains(testing::HasSubstr("Size of the version resource is unknown.")));
        EXPECT_EQ("Cannot retrieve the version of the specified module. Module path: [" +
                      util::wide_to_utf8(path) + "].",
                  lines.empty() ? "" : lines.back());
    }

    wchar_t system[MAX_PATH + 1] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    const std::wstring kernel = std::wstring(system) + L"\\kernel32.dll";
    EXPECT_TRUE(std::regex_match(util::get_version_string(kernel), std::regex(R"(\d+\.\d+\.\d+\.\d+)")));
    EXPECT_EQ("", util::get_comments(kernel));
}

} // namespace
