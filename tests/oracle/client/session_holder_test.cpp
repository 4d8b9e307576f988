#include "support/ocisim_world.h"

#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"
#include "oracle/inventory/oracle_homes.h"
#include "support/capturing_receiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <functional>

using namespace specific::oracle;
using CSimWorld = test::ocisim_world_t;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// With the connection timeout of one second: the caller must be back within
// the deadline and a margin for thread start, kill and Wine.
constexpr ULONGLONG kDeadlineWithMarginMs = 2500;

std::string instance(const std::string& sid, const std::string& props)
{
    return "[instance " + sid + "]\n" + props + "user = name=system | password=manager | sysdba=no\n\n";
}

std::wstring env_value(const wchar_t* name)
{
    wchar_t buffer[512] = {};
    GetEnvironmentVariableW(name, buffer, 512);
    return buffer;
}

// Runs `call`, expects it to raise E, and returns how long it took.
template <typename E>
ULONGLONG expect_raise(const std::function<void()>& call, std::string* text = nullptr)
{
    const ULONGLONG start = GetTickCount64();
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const E& e) {
        if (text != nullptr)
            *text = e.what();
    } catch (const std::exception& e) {
        ADD_FAILURE() << "other exception: " << e.what();
    }
    return GetTickCount64() - start;
}

} // namespace

TEST(OracleSessionHolder, SysdbaByOsAuthenticationNamesTheInstanceAndEndsCleanly)
{
    CSimWorld world(instance("ORCL", "") + instance("TEST", ""));
    {
        COracleSessionHolder holder(L"ORCL", L"C:\\oracle\\home1", {}, false);
        auto session = holder.GetSession();
        EXPECT_TRUE(session->valid);
        EXPECT_FALSE(session->instanceShutdown);
        EXPECT_EQ(env_value(L"ORACLE_SID"), L"ORCL");
        EXPECT_EQ(env_value(L"ORACLE_HOME"), L"C:\\oracle\\home1");
        EXPECT_EQ(session->GetDbName(), L"ORCL");
    }
    EXPECT_THAT(world.journal(), Contains("attach sid=ORCL"));
    EXPECT_THAT(world.journal_starting({"logon"}), ElementsAre("logon sid=ORCL mode=SYSDBA cred=EXT"));
    EXPECT_THAT(world.journal_after("sql sid=ORCL text=SELECT NAME FROM V$DATABASE"),
                ElementsAre("free htype=6", "free htype=4", "logoff sid=ORCL", "detach sid=ORCL", "free htype=9",
                            "free htype=8", "free htype=3", "free htype=2", "free htype=1"));

    // A session that never reached the client still brackets its teardown.
    testing_support::log_capture_t log;
    const size_t events = world.journal().size();
    { COracleSession bare(SOracleCredentials{}); }
    EXPECT_THAT(log.texts(), Contains(HasSubstr("Destroying oracle session ok.")));
    EXPECT_EQ(world.journal().size(), events);
}

TEST(OracleSessionHolder, RefusedSysdbaWithALoginFallsBackOnceToThePlainOrPreliminaryMode)
{
    CSimWorld world(instance("ORCL", ""));
    testing_support::log_capture_t log;
    {
        COracleSessionHolder holder(L"ORCL", L"C:\\oracle\\home1", {"system", "manager"}, false);
        EXPECT_TRUE(holder.GetSession()->valid);
    }
    try {
        COracleSessionHolder holder(L"ORCL", L"C:\\h", {"system", "manager"}, true);
    } catch (const std::exception&) {
        // The outcome of the preliminary fallback is the server's business here.
    }
    EXPECT_THAT(world.journal_starting({"logon"}),
                ElementsAre("logon sid=ORCL mode=SYSDBA cred=RDBMS login=system",
                            "logon sid=ORCL mode=DEFAULT cred=RDBMS login=system",
                            "logon sid=ORCL mode=SYSDBA|PRELIM_AUTH cred=RDBMS login=system",
                            "logon sid=ORCL mode=PRELIM_AUTH cred=RDBMS login=system"));
    EXPECT_THAT(log.texts(), Contains(HasSubstr("Failed to connect as SYSDBA: insufficient privileges or "
                                                "channel error. Connecting by default. Login: system"))
                                 .Times(2))
        << "once for each holder";
}

TEST(OracleSessionHolder, RefusedOsAuthenticationOrAFaultInTheClientFailsOnlyThatInstance)
{
    CSimWorld world(instance("ORCL", "os_sysdba = no\n") + instance("AV", "fault = kind=av | at=attach\n") +
                    instance("GOOD", ""));
    testing_support::log_capture_t log;
    std::string text;
    try {
        COracleSessionHolder holder(L"ORCL", L"C:\\oracle\\home1", {}, false);
        ADD_FAILURE() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_EQ(e.code(), 1031u);
        text = e.what();
    }
    EXPECT_THAT(text, HasSubstr("Oracle error has occurred. ORA-01031"));
    EXPECT_THAT(text, HasSubstr("--tr:Failed to create oracle session.\n--tr:Failed to create oracle "
                                "session holder. SID: ORCL."));
    EXPECT_EQ(world.journal_starting({"logon"}).size(), 1u) << "not retried";
    EXPECT_THAT(log.texts(), Each(testing::Not(HasSubstr("Connecting by default"))));

    expect_raise<COracleSessionCreateExc>(
        [] { COracleSessionHolder holder(L"AV", L"C:\\h", {}, false); }, &text);
    EXPECT_EQ(text, "Failed to create oracle session holder. Session is invalid.\n"
                    "--tr:Failed to create oracle session holder. SID: AV.");
    EXPECT_THAT(log.texts(),
                Contains(HasSubstr("SEH exception has occurred while initializing Oracle session, "
                                   "exception code: 0xc0000005")));

    // The forgiving factory gives no holder and a log line for a failing instance.
    SOracleSid good;
    good.sid = L"GOOD";
    good.homePath = L"C:\\h";
    SOracleSid bad = good;
    bad.sid = L"ORCL";
    EXPECT_TRUE(MakeSessionHolder(good, {}));
    EXPECT_FALSE(MakeSessionHolder(bad, {}));
    EXPECT_THAT(log.texts(), Contains(HasSubstr("ERR |Failed to create session holder for SID: ORCL")));
}

TEST(OracleSessionHolder, HangInAttachOrSessionBeginEndsInTimeoutAndLeavesTheHandlesAlone)
{
    for (const std::string point : {"attach", "session_begin"}) {
        CSimWorld world(instance("ORCL", "fault = kind=hang | at=" + point + "\n"));
        std::string text;
        const ULONGLONG took = expect_raise<COracleInitTimeoutExc>(
            [] { COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false); }, &text);
        EXPECT_LT(took, kDeadlineWithMarginMs) << point;
        EXPECT_GE(took, 900u) << point;
        EXPECT_EQ(text, "Failed to wait oracle session initialization\n"
                        "--tr:Failed to create oracle session holder. SID: ORCL.");
        EXPECT_THAT(world.journal_after("fault sid=ORCL kind=hang at=" + point),
                    ElementsAre("free htype=2"));
    }
}

TEST(OracleInstanceStatus, HangInStatusQueryEndsInTimeoutAndAbandonsTheSession)
{
    CSimWorld world(instance("ORCL", "fault = kind=hang | at=status\n"));
    {
        COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false);
        auto session = holder.GetSession();
        std::string text;
        const ULONGLONG took = expect_raise<COracleExc>(
            [&] { COracleInstanceStatus().IsInstanceOpen(session, false); }, &text);
        EXPECT_LT(took, kDeadlineWithMarginMs);
        EXPECT_EQ(text, "Failed to wait checking if oracle instance is opened\n"
                        "--tr:Checking if oracle instance is open thread failed.\n"
                        "--tr:OracleSession: failed to check if instance is open.");
        EXPECT_TRUE(session->abandoned);
    }
    EXPECT_THAT(world.journal_after("fault sid=ORCL kind=hang at=status"), Each("free htype=2"));
}

TEST(OracleInstanceStatus, StatusTextsDecideOpenAndActive)
{
    struct SCase {
        std::string props;
        bool open;
        bool active;
    };
    const SCase cases[] = {
        {"status = OPEN\n", true, true},
        {"status = OPEN MIGRATE\n", true, true},
        {"status = MOUNTED\n", false, true},
        {"status = OPEN\ndatabase_status = SUSPENDED\n", true, false},
    };
    for (const SCase& c : cases) {
        CSimWorld world(instance("ORCL", c.props));
        COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false);
        COracleInstanceStatus status;
        EXPECT_EQ(status.IsInstanceOpen(holder.GetSession(), false), c.open) << c.props;
        EXPECT_EQ(status.IsDbActive(holder.GetSession()), c.active) << c.props;
    }
}

TEST(OracleSessionLifecycle, DownInstanceIsReportedThenStartedOpenedAndShutDown)
{
    CSimWorld world(instance("ORCL", "status = DOWN\n"));
    COracleInstanceStatus status;
    {
        COracleSessionHolder down(L"ORCL", L"C:\\h", {}, false);
        EXPECT_TRUE(down.GetSession()->valid);
        EXPECT_TRUE(down.GetSession()->instanceShutdown);
        EXPECT_FALSE(status.IsInstanceOpen(down.GetSession(), false));
        COracleSessionHolder idle(L"ORCL", L"C:\\h", {}, true);
        idle.GetSession()->Startup();
    }
    EXPECT_TRUE(world.journal_starting({"sql"}).empty());
    EXPECT_THAT(world.journal_starting({"logon"}),
                ElementsAre("logon sid=ORCL mode=SYSDBA cred=EXT", "logon sid=ORCL mode=SYSDBA|PRELIM_AUTH cred=EXT"));
    EXPECT_THAT(world.journal(), Contains("startup sid=ORCL"));
    {
        COracleSessionHolder started(L"ORCL", L"C:\\h", {}, false);
        EXPECT_FALSE(status.IsInstanceOpen(started.GetSession(), false));
        started.GetSession()->MountAndOpen();
        EXPECT_TRUE(status.IsInstanceOpen(started.GetSession(), false));
        started.GetSession()->Shutdown();
    }
    EXPECT_THAT(world.journal_starting({"shutdown", "sql sid=ORCL text=ALTER DATABASE C", "sql sid=ORCL text=ALTER DATABASE D"}),
                ElementsAre("shutdown sid=ORCL mode=IMMEDIATE",
                            "sql sid=ORCL text=ALTER DATABASE CLOSE NORMAL",
                            "sql sid=ORCL text=ALTER DATABASE DISMOUNT",
                            "shutdown sid=ORCL mode=FINAL"));
    COracleSessionHolder after(L"ORCL", L"C:\\h", {}, false);
    EXPECT_TRUE(after.GetSession()->instanceShutdown);
}
