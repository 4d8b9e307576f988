#include "boundary/console_check.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/registry_sandbox.h"
#include "support/short_timeout.h"
#include "support/sim_machine.h"

namespace {

using test::sim_machine_t;
using specific::oracle::RunConsoleCheck;

testing::Environment* const g_environment =
    testing::AddGlobalTestEnvironment(new test::short_timeout_environment_t);

std::string RunCheck()
{
    std::ostringstream out;
    RunConsoleCheck(out);
    return out.str();
}

TEST(ConsoleCheck, EachOpenInstancePrintsItsArchiveModeAndLogSequencesDownOrHungOnesAreSkipped)
{
    {
        test::registry_sandbox_t emptyMachine;
        EXPECT_EQ(RunCheck(), "");
    }
    sim_machine_t machine;
    // Registry order: the ASM service sorts before the database services.
    machine.add_instance({"+ASM", {{"asm", "yes"}, {"status", "STARTED"}}}, true);
    machine.add_instance({"DOWN", {{"status", "DOWN"}}});
    machine.add_instance({"HUNG", {}, {{"fault", {{"kind", "hang"}, {"at", "session_begin"}}}}});
    machine.add_instance({"NOARC", {{"log_mode", "NOARCHIVELOG"}}});
    machine.add_instance({"ORCL", {},
                          {{"archived_log", {{"name", "C:\\arch\\ARC41.ARC"}, {"recid", "7"}, {"stamp", "70"}, {"sequence", "41"}}},
                           {"archived_log", {{"name", "C:\\arch\\ARC42.ARC"}}}}});

    EXPECT_EQ(RunCheck(), "Checking SID: +ASM\n"
                          "LOCAL: 0, ASM: 0\n"
                          "ok\n"
                          "Checking SID: NOARC\n"
                          "ARCHIVE LOGS: OFF\n"
                          "LOCAL: 0, ASM: 0\n"
                          "ok\n"
                          "Checking SID: ORCL\n"
                          "ARCHIVE LOGS: ON\n"
                          "Log path: 41\n"
                          "Log path: 42\n"
                          "LOCAL: 0, ASM: 0\n"
                          "ok\n");
}

TEST(ConsoleCheck, FailingQueryEndsTheWholeCheck)
{
    sim_machine_t machine;
    machine.add_instance({"ORCL", {}, {{"fault", {{"kind", "error"}, {"at", "sql"}, {"text", "V$ARCHIVED_LOG"}, {"code", "942"}}}}});
    machine.add_instance({"OTHER"});

    std::ostringstream out;
    EXPECT_THROW(RunConsoleCheck(out), std::exception);
    EXPECT_EQ(out.str().find("OTHER"), std::string::npos);
}

} // namespace
