#include "oracle/inventory/vss_functionality.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "boundary/oracle_config.h"
#include "oracle/inventory/vss_gate.h"
#include "sim_machine.h"
#include "support/capturing_receiver.h"
#include "support/registry_sandbox.h"
#include "support/service_sandbox.h"
#include "support/short_timeout.h"

namespace {

using inventory_test::CSimMachine;
using specific::oracle::CheckDbActiveForVss;
using specific::oracle::VssGate;

testing::Environment* const g_environment =
    testing::AddGlobalTestEnvironment(new test::short_timeout_environment_t);

bool HasLineEndingWith(const std::vector<std::string>& lines, const std::string& text)
{
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.size() >= text.size() &&
               line.compare(line.size() - text.size(), text.size(), text) == 0;
    });
}

// Whether one of the three catches of the check has spoken.
bool CheckCaughtSomething(const std::vector<std::string>& lines)
{
    return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("Failed to check if oracle db is active") != std::string::npos ||
               line.find(": timeout. Sid:") != std::string::npos;
    });
}

class DbActiveCheck : public testing::Test {
protected:
    bool Check(const std::string& sid)
    {
        return CheckDbActiveForVss(std::wstring(sid.begin(), sid.end()), machine.HomePath());
    }

    CSimMachine machine;
};

TEST_F(DbActiveCheck, OnlyAnOpenDatabaseThatIsNotActiveCountsAgainstItWithoutAWarning)
{
    machine.AddInstance("ORCL", "status = OPEN");
    machine.AddInstance("DOWN", "status = DOWN");
    machine.AddInstance("SUSP", "database_status = SUSPENDED");
    testing_support::log_capture_t capture;

    EXPECT_TRUE(Check("ORCL"));
    EXPECT_TRUE(Check("DOWN"));
    EXPECT_FALSE(Check("SUSP"));
    EXPECT_FALSE(CheckCaughtSomething(capture.texts()));
}

TEST_F(DbActiveCheck, RefusedLogonIsAPlainErrorThatDoesNotCountAgainstTheDatabase)
{
    machine.AddInstance("NOLOGON", "os_sysdba = no\nos_user = no");
    testing_support::log_capture_t capture;

    EXPECT_TRUE(Check("NOLOGON"));
    EXPECT_TRUE(HasLineEndingWith(capture.texts(),
                                  "WARN|Failed to check if oracle db is active, sid: NOLOGON"));
}

TEST_F(DbActiveCheck, LogonOrStatusQueryThatHangsPastTheTimeoutCountsAgainstTheDatabase)
{
    machine.AddInstance("HANG", "fault = kind=hang | at=session_begin");
    machine.AddInstance("SLOW", "fault = kind=hang | at=status");
    testing_support::log_capture_t capture;

    EXPECT_FALSE(Check("HANG"));
    EXPECT_FALSE(Check("SLOW"));
    const std::vector<std::string> lines = capture.texts();
    EXPECT_TRUE(HasLineEndingWith(lines, "WARN|Failed create oracle session: timeout. Sid: HANG"));
    EXPECT_TRUE(
        HasLineEndingWith(lines, "WARN|Failed query oracle database status: timeout. Sid: SLOW"));
}

// The gate, fresh for each test; the exports use the process-wide one.
class VssVerdictOnTheMachine : public testing::Test {
protected:
    // Unique per test process: writer services live in the one service
    // manager of the Wine prefix.
    std::string Sid(const std::string& stem)
    {
        const std::wstring sid = test::unique_sid(std::wstring(stem.begin(), stem.end()));
        return std::string(sid.begin(), sid.end());
    }

    std::wstring Writer(const std::string& sid)
    {
        return L"OracleVssWriter" + std::wstring(sid.begin(), sid.end());
    }

    CSimMachine machine;
    VssGate gate;
};

TEST_F(VssVerdictOnTheMachine, InactiveDatabaseWithARunningWriterDisablesVssAndStopsTheSearch)
{
    const std::string first = Sid("A");
    const std::string second = Sid("B");
    machine.AddInstance(first, "database_status = SUSPENDED");
    machine.AddInstance(second, "database_status = SUSPENDED");
    test::test_service_t firstWriter(Writer(first));
    test::test_service_t secondWriter(Writer(second));
    firstWriter.start();
    secondWriter.start();
    testing_support::log_capture_t capture;

    EXPECT_FALSE(gate.IsVssEnabled());

    EXPECT_TRUE(machine.Contacted(first));
    EXPECT_FALSE(machine.Contacted(second));
    const std::vector<std::string> lines = capture.texts();
    EXPECT_TRUE(HasLineEndingWith(lines, "Checking if oracle VSS must be disabled"));
    EXPECT_TRUE(HasLineEndingWith(lines, "VSS must be disabled"));
    EXPECT_TRUE(HasLineEndingWith(lines, "Checking if oracle VSS must be disabled ok."));
}

TEST_F(VssVerdictOnTheMachine, ShutDownDatabaseWithARunningWriterKeepsVssEnabled)
{
    const std::string sid = Sid("D");
    machine.AddInstance(sid, "status = DOWN");
    test::test_service_t writer(Writer(sid));
    writer.start();
    testing_support::log_capture_t capture;

    EXPECT_TRUE(gate.IsVssEnabled());
    EXPECT_TRUE(HasLineEndingWith(capture.texts(), "VSS must be enabled"));
}

TEST_F(VssVerdictOnTheMachine, AsmInstancesAreNeverContacted)
{
    machine.AddInstance("+ASM", "asm = yes\nstatus = STARTED\nfault = kind=hang | at=attach", true);

    EXPECT_TRUE(gate.IsVssEnabled());
    EXPECT_TRUE(machine.Journal().empty());
}

TEST_F(VssVerdictOnTheMachine, VerdictIsKeptAndTheMachineNotAskedAgain)
{
    const std::string sid = Sid("C");
    machine.AddInstance(sid, "database_status = SUSPENDED");
    test::test_service_t writer(Writer(sid));
    writer.start();
    ASSERT_FALSE(gate.IsVssEnabled());
    const size_t journalLines = machine.Journal().size();

    writer.stop();
    machine.Registry().delete_key(L"SOFTWARE\\ORACLE");

    EXPECT_FALSE(gate.IsVssEnabled());
    EXPECT_EQ(machine.Journal().size(), journalLines);
}

TEST_F(VssVerdictOnTheMachine, FailedDiscoveryLeavesNoVerdictSoTheNextCallTriesAgain)
{
    const std::wstring tooLong =
        L"SYSTEM\\CurrentControlSet\\Services\\" + std::wstring(255, L'S');
    machine.Registry().create_key(tooLong);

    EXPECT_THROW(gate.IsVssEnabled(), std::exception);

    machine.Registry().delete_key(tooLong);
    EXPECT_TRUE(gate.IsVssEnabled());
}

} // namespace
