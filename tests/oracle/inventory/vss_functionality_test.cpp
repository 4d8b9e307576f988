#include "oracle/inventory/vss_functionality.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/strings/strings.h"
#include "oracle/inventory/vss_gate.h"
#include "support/capturing_receiver.h"
#include "support/process.h"
#include "support/service_sandbox.h"
#include "support/short_timeout.h"
#include "support/sim_machine.h"

namespace {

using test::has_line_ending_with;
using test::sim_machine_t;
using specific::oracle::CheckDbActiveForVss;
using specific::oracle::IsVssWriterServiceEnabled;
using specific::oracle::CVssGate;

testing::Environment* const g_environment =
    testing::AddGlobalTestEnvironment(new test::short_timeout_environment_t);

// Unique per test process: writer services live in the one service manager of
// the Wine prefix.
std::string Sid(const std::string& stem)
{
    return util::wide_to_utf8(test::unique_sid(util::utf8_to_wide(stem)));
}

std::wstring Writer(const std::string& sid)
{
    return L"OracleVssWriter" + util::utf8_to_wide(sid);
}

TEST(DbActiveCheck, OnlyAnOpenInactiveDatabaseOrAHangCountsAgainstItAndARefusedLogonDoesNot)
{
    sim_machine_t machine;
    const ocisim::InstanceSetup instances[] = {
        {"ORCL", {{"status", "OPEN"}}},
        {"DOWN", {{"status", "DOWN"}}},
        {"SUSP", {{"database_status", "SUSPENDED"}}},
        {"NOLOGON", {{"os_sysdba", "no"}, {"os_user", "no"}}},
        {"HANG", {}, {{"fault", {{"kind", "hang"}, {"at", "session_begin"}}}}},
        {"SLOW", {}, {{"fault", {{"kind", "hang"}, {"at", "status"}}}}},
    };
    for (const ocisim::InstanceSetup& instance : instances)
        machine.add_instance(instance);
    test::strict_log_t capture;
    const auto check = [&](const std::string& sid) {
        return CheckDbActiveForVss(util::utf8_to_wide(sid), machine.home_path());
    };

    EXPECT_TRUE(check("ORCL"));
    EXPECT_TRUE(check("DOWN"));
    EXPECT_FALSE(check("SUSP"));
    // None of the three catches of the check has spoken so far.
    const std::string quiet = capture.receiver->all();
    EXPECT_EQ(quiet.find("Failed to check if oracle db is active"), std::string::npos);
    EXPECT_EQ(quiet.find(": timeout. Sid:"), std::string::npos);
    EXPECT_TRUE(check("NOLOGON"));
    EXPECT_FALSE(check("HANG"));
    EXPECT_FALSE(check("SLOW"));
    const std::vector<std::string> lines = capture.take();
    EXPECT_TRUE(has_line_ending_with(lines, "WARN|Failed to check if oracle db is active, sid: NOLOGON"));
    EXPECT_TRUE(has_line_ending_with(lines, "WARN|Failed create oracle session: timeout. Sid: HANG"));
    EXPECT_TRUE(has_line_ending_with(lines, "WARN|Failed query oracle database status: timeout. Sid: SLOW"));
}

TEST(VssWriterService, OnlyARunningOrStartingWriterCountsAndAMissingOneIsAWarning)
{
    const std::string sid = Sid("W");
    const std::string service = util::wide_to_utf8(Writer(sid));
    test::strict_log_t missing;
    EXPECT_FALSE(IsVssWriterServiceEnabled(util::utf8_to_wide(sid)));
    EXPECT_TRUE(has_line_ending_with(missing.take(), "WARN|Failed to check if VSS oracle writer service enabled, sid: " + sid));
    EXPECT_NE(missing.receiver->all().find("Failed to open service '" + service), std::string::npos);

    test::test_service_t writer(Writer(sid));
    const auto state_after = [&](bool enabled, const char* status) {
        test::strict_log_t capture;
        EXPECT_EQ(IsVssWriterServiceEnabled(util::utf8_to_wide(sid)), enabled) << status;
        EXPECT_TRUE(has_line_ending_with(capture.take(), "Found service: " + service + ", status: " + status));
    };
    state_after(false, "1");
    writer.start();
    state_after(true, "4");
    writer.pause();
    state_after(false, "7");

    const std::string starting = Sid("P");
    test::test_service_t pending(Writer(starting), test::test_service_t::mode_t::start_pending);
    pending.start();
    test::strict_log_t capture;
    EXPECT_TRUE(IsVssWriterServiceEnabled(util::utf8_to_wide(starting)));
    EXPECT_TRUE(has_line_ending_with(capture.take(), util::wide_to_utf8(Writer(starting)) + ", status: 2"));
}

// The gate, fresh for each test; the exports use the process-wide one.
class VssVerdictOnTheMachine : public testing::Test {
protected:
    sim_machine_t machine;
    CVssGate gate;
};

TEST_F(VssVerdictOnTheMachine, InactiveDatabaseWithARunningWriterDisablesVssAndStopsTheSearch)
{
    const std::string first = Sid("A");
    const std::string second = Sid("B");
    machine.add_instance({first, {{"database_status", "SUSPENDED"}}});
    machine.add_instance({second, {{"database_status", "SUSPENDED"}}});
    test::test_service_t firstWriter(Writer(first));
    test::test_service_t secondWriter(Writer(second));
    firstWriter.start();
    secondWriter.start();
    test::strict_log_t capture;

    EXPECT_FALSE(gate.IsVssEnabled());

    EXPECT_TRUE(machine.contacted(first));
    EXPECT_FALSE(machine.contacted(second));
    const std::vector<std::string> lines = capture.take();
    EXPECT_TRUE(has_line_ending_with(lines, "Checking if oracle VSS must be disabled"));
    EXPECT_TRUE(has_line_ending_with(lines, "VSS must be disabled"));
    EXPECT_TRUE(has_line_ending_with(lines, "Checking if oracle VSS must be disabled ok."));
}

TEST_F(VssVerdictOnTheMachine, ShutDownDatabaseWithARunningWriterKeepsVssEnabledAndAsmIsNeverContacted)
{
    const std::string sid = Sid("D");
    machine.add_instance({"+ASM", {{"asm", "yes"}, {"status", "STARTED"}}, {{"fault", {{"kind", "hang"}, {"at", "attach"}}}}},
                         true);
    machine.add_instance({sid, {{"status", "DOWN"}}});
    test::test_service_t writer(Writer(sid));
    writer.start();
    test::strict_log_t capture;

    EXPECT_TRUE(gate.IsVssEnabled());
    EXPECT_TRUE(has_line_ending_with(capture.take(), "VSS must be enabled"));
    EXPECT_TRUE(machine.contacted(sid));
    EXPECT_FALSE(machine.contacted("+ASM"));
}

TEST_F(VssVerdictOnTheMachine, FailedDiscoveryLeavesNoVerdictSoTheNextCallTriesAgain)
{
    const std::wstring tooLong = L"SYSTEM\\CurrentControlSet\\Services\\" + std::wstring(255, L'S');
    machine.registry().create_key(tooLong);
    EXPECT_THROW(gate.IsVssEnabled(), std::exception);
    machine.registry().delete_key(tooLong);

    const std::string sid = Sid("C");
    machine.add_instance({sid, {{"database_status", "SUSPENDED"}}});
    test::test_service_t writer(Writer(sid));
    writer.start();
    EXPECT_FALSE(gate.IsVssEnabled());
}

} // namespace
