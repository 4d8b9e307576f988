#include "boundary/console_check.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "sim_machine.h"
#include "support/registry_sandbox.h"

namespace {

using inventory_test::CSimMachine;
using specific::oracle::RunConsoleCheck;

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
    CSimMachine machine;
    // Registry order: the ASM service sorts before the database services.
    machine.AddInstance("+ASM", "asm = yes\nstatus = STARTED", true);
    machine.AddInstance("DOWN", "status = DOWN");
    machine.AddInstance("HUNG", "fault = kind=hang | at=session_begin");
    machine.AddInstance("NOARC", "log_mode = NOARCHIVELOG");
    machine.AddInstance("ORCL",
                        "archived_log = name=C:\\arch\\ARC41.ARC | recid=7 | stamp=70 | sequence=41\n"
                        "archived_log = name=C:\\arch\\ARC42.ARC");

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
    CSimMachine machine;
    machine.AddInstance("ORCL", "fault = kind=error | at=sql | text=V$ARCHIVED_LOG | code=942");
    machine.AddInstance("OTHER", "");

    std::ostringstream out;
    EXPECT_THROW(RunConsoleCheck(out), std::exception);
    EXPECT_EQ(out.str().find("OTHER"), std::string::npos);
}

} // namespace
