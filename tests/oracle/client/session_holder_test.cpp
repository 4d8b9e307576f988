#include "oracle/client/session_holder.h"

#include "oracle/client/oracle_exc.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/oracle_sid.h"
#include "support/capturing_receiver.h"
#include "support/failure_lines.h"
#include "support/ocisim_world.h"
#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace specific::oracle;
using CSimWorld = test::ocisim_world_t;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// An instance whose user "system" may log on, but not as SYSDBA.
ocisim::InstanceSetup instance(const std::string& sid, const ocisim::Fields& properties = {},
                              std::vector<std::pair<std::string, ocisim::Fields>> records = {})
{
    records.push_back({"user", {{"name", "system"}, {"password", "manager"}}});
    return {sid, properties, records};
}

TEST(OracleSessionHolder, SysdbaByOsAuthenticationNamesTheInstanceAndEndsCleanly)
{
    CSimWorld world({instance("ORCL"), instance("TEST")});
    {
        COracleSessionHolder holder(L"ORCL", L"C:\\oracle\\home1", {}, false);
        auto session = holder.GetSession();
        EXPECT_TRUE(session->valid);
        EXPECT_FALSE(session->instanceShutdown);
        EXPECT_EQ(test::env_value(L"ORACLE_SID"), L"ORCL");
        EXPECT_EQ(test::env_value(L"ORACLE_HOME"), L"C:\\oracle\\home1");
        EXPECT_EQ(session->GetDbName(), L"ORCL");
    }
    EXPECT_THAT(world.take_journal(),
                ElementsAre("attach sid=ORCL", "logon sid=ORCL mode=SYSDBA cred=EXT",
                            "sql sid=ORCL text=SELECT NAME FROM V$DATABASE", "free htype=6", "free htype=4",
                            "logoff sid=ORCL", "detach sid=ORCL", "free htype=9", "free htype=8", "free htype=3",
                            "free htype=2", "free htype=1"));

    // A session that never reached the client still brackets its teardown.
    test::strict_log_t log;
    { COracleSession bare(SOracleCredentials{}); }
    EXPECT_THAT(log.take(), ElementsAre("oralib| Destroying oracle session", "oralib| Destroying oracle session ok."));
    EXPECT_THAT(world.take_journal(), ElementsAre());
}

TEST(OracleSessionHolder, RefusedSysdbaWithALoginFallsBackOnceToThePlainOrPreliminaryMode)
{
    CSimWorld world({instance("ORCL")});
    test::strict_log_t log;
    {
        COracleSessionHolder holder(L"ORCL", L"C:\\oracle\\home1", {"system", "manager"}, false);
        EXPECT_TRUE(holder.GetSession()->valid);
    }
    try {
        COracleSessionHolder holder(L"ORCL", L"C:\\h", {"system", "manager"}, true);
    } catch (const std::exception&) {
        // The outcome of the preliminary fallback is the server's business here.
    }
    std::vector<std::string> logons;
    for (const std::string& line : world.take_journal())
        if (line.compare(0, 5, "logon") == 0)
            logons.push_back(line);
    EXPECT_THAT(logons, ElementsAre("logon sid=ORCL mode=SYSDBA cred=RDBMS login=system",
                                    "logon sid=ORCL mode=DEFAULT cred=RDBMS login=system",
                                    "logon sid=ORCL mode=SYSDBA|PRELIM_AUTH cred=RDBMS login=system",
                                    "logon sid=ORCL mode=PRELIM_AUTH cred=RDBMS login=system"));
    EXPECT_THAT(log.take(), testing::Contains(HasSubstr("Failed to connect as SYSDBA: insufficient privileges or "
                                                        "channel error. Connecting by default. Login: system"))
                                .Times(2))
        << "once for each holder";
}

TEST(OracleSessionHolder, RefusedOsAuthenticationOrAFaultInTheClientFailsOnlyThatInstance)
{
    CSimWorld world({instance("ORCL", {{"os_sysdba", "no"}}),
                     instance("AV", {}, {{"fault", {{"kind", "av"}, {"at", "attach"}}}}), instance("GOOD")});
    test::strict_log_t log;
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
    EXPECT_THAT(world.take_journal(),
                ElementsAre("attach sid=ORCL", "logon sid=ORCL mode=SYSDBA cred=EXT", "error sid=ORCL code=1031",
                            "detach sid=ORCL", "free htype=9", "free htype=8", "free htype=3", "free htype=2",
                            "free htype=1"))
        << "not retried";
    const std::vector<std::string> refused = log.take();
    EXPECT_THAT(refused, testing::Contains("oralib| ERR |Oracle session init thread failed"));
    EXPECT_THAT(refused, testing::Each(testing::Not(HasSubstr("Connecting by default"))));

    test::raise_time<COracleSessionCreateExc>([] { COracleSessionHolder holder(L"AV", L"C:\\h", {}, false); }, &text);
    EXPECT_EQ(text, "Failed to create oracle session holder. Session is invalid.\n"
                    "--tr:Failed to create oracle session holder. SID: AV.");
    EXPECT_THAT(log.take(), testing::Contains(HasSubstr("SEH exception has occurred while initializing Oracle "
                                                        "session, exception code: 0xc0000005")));

    // The forgiving factory gives no holder and a log line for a failing instance.
    SOracleSid good;
    good.sid = L"GOOD";
    good.homePath = L"C:\\h";
    SOracleSid bad = good;
    bad.sid = L"ORCL";
    EXPECT_TRUE(MakeSessionHolder(good, {}));
    EXPECT_FALSE(MakeSessionHolder(bad, {}));
    EXPECT_THAT(log.take(), testing::Contains(HasSubstr("ERR |Failed to create session holder for SID: ORCL")));
}

TEST(OracleSessionHolder, HangInAttachOrSessionBeginEndsInTimeoutAndLeavesTheHandlesAlone)
{
    for (const std::string point : {"attach", "session_begin"}) {
        CSimWorld world({instance("ORCL", {}, {{"fault", {{"kind", "hang"}, {"at", point}}}})});
        std::string text;
        const ULONGLONG took = test::raise_time<COracleInitTimeoutExc>(
            [] { COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false); }, &text);
        EXPECT_LT(took, test::kDeadlineWithMarginMs) << point;
        EXPECT_GE(took, 900u) << point;
        EXPECT_EQ(text, "Failed to wait oracle session initialization\n"
                        "--tr:Failed to create oracle session holder. SID: ORCL.");
        const std::vector<std::string> journal = world.take_journal();
        ASSERT_GE(journal.size(), 2u);
        EXPECT_THAT(std::vector<std::string>(journal.end() - 2, journal.end()),
                    ElementsAre("fault sid=ORCL kind=hang at=" + point, "free htype=2"));
    }
}

TEST(OracleSessionLifecycle, DownInstanceIsReportedThenStartedOpenedAndShutDown)
{
    CSimWorld world({instance("ORCL", {{"status", "DOWN"}})});
    COracleInstanceStatus status;
    {
        COracleSessionHolder down(L"ORCL", L"C:\\h", {}, false);
        EXPECT_TRUE(down.GetSession()->valid);
        EXPECT_TRUE(down.GetSession()->instanceShutdown);
        EXPECT_FALSE(status.IsInstanceOpen(down.GetSession(), false));
        COracleSessionHolder idle(L"ORCL", L"C:\\h", {}, true);
        idle.GetSession()->Startup();
    }
    EXPECT_THAT(world.take_journal(),
                ElementsAre("attach sid=ORCL", "logon sid=ORCL mode=SYSDBA cred=EXT", "error sid=ORCL code=1034",
                            "attach sid=ORCL", "logon sid=ORCL mode=SYSDBA|PRELIM_AUTH cred=EXT", "startup sid=ORCL",
                            "logoff sid=ORCL", "detach sid=ORCL", "free htype=9", "free htype=8", "free htype=3",
                            "free htype=2", "free htype=1", "logoff sid=ORCL", "error sid=ORCL code=1012",
                            "detach sid=ORCL", "free htype=9", "free htype=8", "free htype=3", "free htype=2",
                            "free htype=1"));
    {
        COracleSessionHolder started(L"ORCL", L"C:\\h", {}, false);
        EXPECT_FALSE(status.IsInstanceOpen(started.GetSession(), false));
        started.GetSession()->MountAndOpen();
        EXPECT_TRUE(status.IsInstanceOpen(started.GetSession(), false));
        started.GetSession()->Shutdown();
    }
    EXPECT_THAT(world.take_statements(),
                ElementsAre("sql sid=ORCL text=SELECT STATUS FROM V$INSTANCE", "sql sid=ORCL text=ALTER DATABASE MOUNT",
                            "sql sid=ORCL text=ALTER DATABASE OPEN", "sql sid=ORCL text=SELECT STATUS FROM V$INSTANCE",
                            "sql sid=ORCL text=ALTER DATABASE CLOSE NORMAL",
                            "sql sid=ORCL text=ALTER DATABASE DISMOUNT"));
    COracleSessionHolder after(L"ORCL", L"C:\\h", {}, false);
    EXPECT_TRUE(after.GetSession()->instanceShutdown);
}

} // namespace
