#include "oracle/client/instance_status.h"

#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"
#include "support/failure_lines.h"
#include "support/ocisim_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace specific::oracle;
using CSimWorld = test::ocisim_world_t;
using testing::ElementsAre;

namespace {

TEST(OracleInstanceStatus, HangInStatusQueryEndsInTimeoutAndAbandonsTheSession)
{
    CSimWorld world({{"ORCL", {}, {{"fault", {{"kind", "hang"}, {"at", "status"}}}}}});
    {
        COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false);
        auto session = holder.GetSession();
        world.take_journal();
        std::string text;
        const ULONGLONG took = test::raise_time<COracleExc>(
            [&] { COracleInstanceStatus().IsInstanceOpen(session, false); }, &text);
        EXPECT_LT(took, test::kDeadlineWithMarginMs);
        EXPECT_EQ(text, "Failed to wait checking if oracle instance is opened\n"
                        "--tr:Checking if oracle instance is open thread failed.\n"
                        "--tr:OracleSession: failed to check if instance is open.");
        EXPECT_TRUE(session->abandoned);
    }
    EXPECT_THAT(world.take_journal(),
                ElementsAre("sql sid=ORCL text=SELECT STATUS FROM V$INSTANCE", "fault sid=ORCL kind=hang at=status"))
        << "an abandoned session's handles are left alone";
}

TEST(OracleInstanceStatus, StatusTextsDecideOpenAndActive)
{
    struct SCase {
        ocisim::Fields props;
        bool open;
        bool active;
    };
    const SCase cases[] = {
        {{{"status", "OPEN"}}, true, true},
        {{{"status", "OPEN MIGRATE"}}, true, true},
        {{{"status", "MOUNTED"}}, false, true},
        {{{"status", "OPEN"}, {"database_status", "SUSPENDED"}}, true, false},
    };
    for (const SCase& c : cases) {
        CSimWorld world({{"ORCL", c.props}});
        COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false);
        COracleInstanceStatus status;
        EXPECT_EQ(status.IsInstanceOpen(holder.GetSession(), false), c.open) << c.props.at("status");
        EXPECT_EQ(status.IsDbActive(holder.GetSession()), c.active) << c.props.at("status");
    }
}

} // namespace
