// orasnap.exe as an operator runs it: a child process against the simulated server,
// one test per family of subcommands, its exit code and both output streams.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "common/strings/strings.h"
#include "host/cli_machine.h"
#include "support/process.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const char kPassword[] = "Qx9-Cli-Sekr3t";

// The password reaches orasnap.exe through its environment variable for the life of the object.
class password_env_t {
public:
    password_env_t() { test::set_process_env(L"ORASNAP_PASSWORD", util::utf8_to_wide(kPassword)); }
    ~password_env_t() { test::set_process_env(L"ORASNAP_PASSWORD", L""); }
};

// The text ends with the line `pattern` (ECMAScript), where "@T" stands for the elapsed time.
MATCHER_P(EndsWithLine, pattern, "ends with the line " + std::string(pattern))
{
    const std::string expression = test::replace_all(pattern, "@T", "after [0-9]+\\.[0-9] s");
    return std::regex_search(arg, std::regex("(^|\n)" + expression + "\n$"));
}

void write_text(const std::wstring& path, const std::string& text)
{
    std::ofstream(path.c_str(), std::ios::binary) << text;
}

} // namespace

namespace test {

TEST(CommandLine, MistakesAndUnreadableInputsExitWithTwoAndSayWhatIsWrong)
{
    temp_folder_t folder;
    const std::wstring missing = folder.file(L"missing.xml");
    const struct {
        std::vector<std::wstring> args;
        std::string message;
    } mistakes[] = {
        {{L"bogus"}, "orasnap: unknown subcommand 'bogus'"},
        {{L"prepare"}, "--dbs is required"},
        {{L"explore", L"--no-such-option"}, "The following argument was not expected: --no-such-option"},
        {{L"delete-logs", L"--home", L"C:\\h", L"--sid", L"ORCL", L"--older-than", L"5", L"--keep-size", L"9"},
         "Exactly 1 option from [--older-than,--keep-size] is required and 2 were given"},
        {{L"delete-logs", L"--home", L"C:\\h", L"--sid", L"ORCL", L"--older-than", L"soon"}, "--older-than"},
        {{L"finish", L"--dbs", missing}, "orasnap finish: Cannot read the --dbs file '" + util::wide_to_utf8(missing) + "': "},
        {{L"remove-logs", L"--logs", folder.path()}, "orasnap remove-logs: Cannot read the --logs file '"},
        {{L"explore", L"--out", folder.file(L"no\\such\\folder.xml")}, "orasnap explore: Cannot write the --out file '"},
        {{L"backup-logs", L"--home", L"C:\\h", L"--sid", L"ORCL", L"--login", L"system"},
         "orasnap backup-logs: --login system needs a password: standard input is not a console, so set it in the "
         "environment variable ORASNAP_PASSWORD"},
    };
    for (const auto& mistake : mistakes) {
        const cli_run_t run = run_cli(mistake.args);
        EXPECT_EQ(run.exit_code, 2u) << mistake.message;
        EXPECT_THAT(run.err, HasSubstr(mistake.message));
        EXPECT_THAT(run.out, IsEmpty()) << mistake.message;
    }
    const cli_run_t help = run_cli({L"prepare", L"--help"});
    EXPECT_EQ(help.exit_code, 0u);
    EXPECT_THAT(help.out, AllOf(HasSubstr("OraclePrepareDbsForBackup"), HasSubstr("--os-login"),
                                HasSubstr("Example: orasnap prepare --dbs writers.xml --login system")));
}

TEST(CommandLine, BackupCycleRunsThroughSubcommandsAndNeverShowsThePassword)
{
    cli_machine_t machine(kPassword);
    const password_env_t password;
    const std::wstring inventory = machine.folder().file(L"inventory.xml");
    std::vector<cli_run_t> runs;

    runs.push_back(run_cli({L"explore", L"--login", L"system", L"--out", inventory}));
    EXPECT_EQ(runs.back().exit_code, 0u) << runs.back().err;
    EXPECT_THAT(runs.back().out, IsEmpty());
    EXPECT_THAT(read_file_text(inventory), HasSubstr("ORCL"));
    EXPECT_THAT(runs.back().err, EndsWithLine("explore: S_OK @T"));

    runs.push_back(run_cli({L"vss-check"}));
    EXPECT_EQ(runs.back().out, "true\n") << runs.back().err;

    runs.push_back(run_cli({L"prepare", L"--dbs", L"-", L"--login", L"system"},
                           "<databases><database sid=\"ORCL\"/></databases>"));
    const cli_run_t prepared = runs.back();
    EXPECT_EQ(prepared.exit_code, 0u) << prepared.err;
    EXPECT_THAT(prepared.out, AllOf(HasSubstr("<database sid=\"ORCL\""), HasSubstr("action=\"4\"")));
    EXPECT_THAT(prepared.err, EndsWithLine("prepare: S_OK @T; databases by action: vss 1; VSS writers to leave out: none"));

    runs.push_back(run_cli({L"skip-writer", L"--sid", L"ORCL", L"--login", L"system"}));
    EXPECT_EQ(runs.back().out, "false\n") << runs.back().err;

    runs.push_back(run_cli({L"restore-required"}));
    EXPECT_EQ(runs.back().out, "true\n") << "the prepare leaves OracleMeta.xml for the snapshot";

    const std::wstring prepareDocument = machine.folder().file(L"prepare.xml");
    write_text(prepareDocument, prepared.out);
    runs.push_back(run_cli({L"finish", L"--dbs", prepareDocument, L"--login", L"system"}));
    EXPECT_EQ(runs.back().exit_code, 0u) << runs.back().err;
    EXPECT_THAT(runs.back().err, EndsWithLine("finish: S_OK @T; 1 databases"));

    runs.push_back(run_cli({L"restore-required"}));
    EXPECT_EQ(runs.back().out, "false\n") << runs.back().err;

    runs.push_back(run_cli({L"gather-vss-info"}));
    EXPECT_EQ(runs.back().exit_code, 1u);
    EXPECT_THAT(runs.back().err, AllOf(StartsWith("No Oracle VSS entries were gathered.\n"),
                                       EndsWithLine("gather-vss-info: E_FAIL @T")));

    for (const cli_run_t& run : runs)
        EXPECT_THAT(run.out + run.err, Not(HasSubstr(kPassword)));
    const std::string log = read_file_text(machine.folder().file(L"orasnap-cli.log"));
    EXPECT_THAT(log, HasSubstr("Preparing"));
    EXPECT_THAT(log, Not(HasSubstr(kPassword)));
}

TEST(CommandLine, ArchivedLogsAreHandedOverListedRemovedAndDeleted)
{
    cli_machine_t machine(kPassword);
    const std::wstring home = machine.home();
    const std::wstring logs = machine.folder().file(L"logs.xml");

    const cli_run_t folder = run_cli({L"logs-folder"});
    EXPECT_EQ(folder.out, util::wide_to_utf8(machine.logs_folder()) + "\n") << folder.err;

    const cli_run_t backup = run_cli({L"backup-logs", L"--home", home, L"--sid", L"ORCL", L"--usn", L"usn-1",
                                      L"--out", logs});
    EXPECT_EQ(backup.exit_code, 0u) << backup.err;
    EXPECT_THAT(read_file_text(logs), HasSubstr("creationUsn=\"usn-1\""));
    EXPECT_THAT(backup.err, EndsWithLine("backup-logs: S_OK @T; 4 logs, 4 copied, 4096 bytes"));

    const cli_run_t listed = run_cli({L"enum-logs"});
    EXPECT_THAT(listed.err, EndsWithLine("enum-logs: S_OK @T; 4 logs, 4 copied, 4096 bytes"));

    EXPECT_EQ(run_cli({L"remove-logs", L"--logs", logs}).exit_code, 0u);
    EXPECT_THAT(run_cli({L"enum-logs"}).err, EndsWithLine("enum-logs: S_OK @T; 0 logs, 0 copied, 0 bytes"));

    const cli_run_t deleted = run_cli({L"delete-logs", L"--home", home, L"--sid", L"ORCL", L"--older-than", L"0"});
    EXPECT_EQ(deleted.exit_code, 0u) << deleted.err;
    EXPECT_THAT(machine.world().take_statements(), testing::Contains(HasSubstr("DELETEARCHIVEDLOG")));

    const cli_run_t failed = run_cli({L"backup-logs", L"--home", home, L"--sid", L"NOSUCH", L"--out", logs});
    EXPECT_EQ(failed.exit_code, 1u);
    EXPECT_THAT(failed.out, IsEmpty());
    EXPECT_THAT(failed.err, AllOf(HasSubstr("--tr:Failed to create oracle session holder. SID: NOSUCH.\n"),
                                  EndsWithLine("backup-logs: E_FAIL @T")));
    EXPECT_EQ(GetFileAttributesW(logs.c_str()), INVALID_FILE_ATTRIBUTES) << "a failed call leaves no --out file";
}

} // namespace test
