#include "oracle/client/oracle_session.h"

#include "support/ocisim_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace specific::oracle;
using CSimWorld = test::ocisim_world_t;
using testing::ElementsAre;

namespace {

TEST(OracleSessionOps, DatabaseOptionsNameAndVersionFlagsEachAskedOnce)
{
    struct SCase {
        ocisim::Fields props;
        bool readOnly;
        bool archiveLog;
        bool atMost10;
        bool atLeast12;
    };
    const SCase cases[] = {
        {{{"open_mode", "READ WRITE"}, {"log_mode", "NOARCHIVELOG"}, {"version", "11.2.0.4.0"}}, false, false, false, false},
        {{{"open_mode", "READ ONLY WITH APPLY"}, {"version", "10.2.0.1.0"}}, true, true, true, false},
        {{{"version", "12.1.0.2.0"}}, false, true, false, true},
        {{{"version", "19"}}, false, true, false, false},
    };
    for (const SCase& c : cases) {
        ocisim::Fields props = c.props;
        props["name"] = "orcl";
        CSimWorld world({{"ORCL", props}});
        auto session = test::sim_session();
        bool readOnly = !c.readOnly;
        bool archiveLog = !c.archiveLog;
        session->GetDatabaseOptions(readOnly, archiveLog);
        const std::string version = c.props.at("version");
        EXPECT_EQ(readOnly, c.readOnly) << version;
        EXPECT_EQ(archiveLog, c.archiveLog) << version;
        EXPECT_EQ(session->IsVersion10OrLower(), c.atMost10) << version;
        EXPECT_EQ(session->IsVersion12OrHigher(), c.atLeast12) << version;
        EXPECT_EQ(session->GetDbName(), L"ORCL");
        EXPECT_EQ(session->GetDbName(), L"ORCL");
        EXPECT_THAT(world.take_statements(), ElementsAre("sql sid=ORCL text=SELECT OPEN_MODE, LOG_MODE FROM V$DATABASE",
                                                         "sql sid=ORCL text=SELECT VERSION FROM V$INSTANCE",
                                                         "sql sid=ORCL text=SELECT NAME FROM V$DATABASE"))
            << version;
    }
}

} // namespace
