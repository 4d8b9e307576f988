#include "oracle/client/oracle_query.h"

#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_session.h"
#include "support/ocisim_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace specific::oracle;
using CSimWorld = test::ocisim_world_t;
using testing::ElementsAre;

namespace {

const char kListeners[] = "SELECT NAME, VALUE FROM V$PARAMETER WHERE NAME LIKE '%_listener'";

std::pair<std::string, ocisim::Fields> listener(const std::string& name, const std::string& value)
{
    return {"parameter", {{"name", name + "_listener"}, {"value", value}}};
}

TEST(OracleQuery, RowsWithNullOrTruncatedValuesAreDroppedWholeAndOthersWidenedBytewise)
{
    {
        CSimWorld world({{"ORCL", {}, {listener("a", "tcp \xE9"), listener("b", ""),
                                       listener("c", std::string(1024, 'x')), listener("d", std::string(1023, 'y'))}}});
        auto session = test::sim_session();
        const std::vector<COracleRow> rows = session->NewQuery()->Exec(kListeners, 2, false)->rows;
        EXPECT_EQ(rows, (std::vector<COracleRow>{{L"a_listener", std::wstring(L"tcp ") + wchar_t(0xFFE9)},
                                                 {L"d_listener", std::wstring(1023, L'y')}}));
        EXPECT_EQ(session->NewQuery()->ExecFirstRow(kListeners, 2, true),
                  (COracleRow{L"A_LISTENER", std::wstring(L"TCP ") + wchar_t(0xFFE9)}))
            << "upper-cased only on request";
    }
    CSimWorld world({{"ORCL", {}, {listener("a", "1"), listener("b", "2"), listener("c", "3"),
                                   {"fault", {{"kind", "fetch_fail"}, {"text", "V$PARAMETER"}, {"after", "2"}}}}}});
    EXPECT_EQ(test::sim_session()->NewQuery()->Exec(kListeners, 2, false)->rows.size(), 2u) << "a failing fetch ends the rows";
    EXPECT_THAT(world.journal(), testing::Contains("fault sid=ORCL kind=fetch_fail at=fetch"));
}

TEST(OracleQuery, EmptyResultsGiveNoRowsAndFailuresCarryTheirLinesAndTheServerCode)
{
    CSimWorld world({{"ORCL", {{"status", "STARTED"}}}});
    auto session = test::sim_session();
    session->NewQuery()->ExecNoResult("ALTER DATABASE MOUNT");
    EXPECT_EQ(session->NewQuery()->ExecValue("SELECT VALUE FROM V$PARAMETER WHERE NAME='none'", false), L"");
    EXPECT_TRUE(session->NewQuery()->ExecFirstRow(kListeners, 2, false).empty());
    EXPECT_THAT(world.take_statements(), ElementsAre("sql sid=ORCL text=ALTER DATABASE MOUNT",
                                              "sql sid=ORCL text=SELECT VALUE FROM V$PARAMETER WHERE NAME='none'",
                                              std::string("sql sid=ORCL text=") + kListeners));
    const std::pair<std::string, std::string> failures[] = {
        {"", "Oracle error has occurred. ORA-24373: invalid length specified for statement\n\n"
             "--tr:OracleSession: failed to create OCI Stmt.\n"
             "--tr:Failed to exec query []."},
        {"SELECT X FROM NOWHERE", "Oracle error has occurred. ORA-00900: invalid SQL statement\n\n"
                                  "--tr:Failed to exec query [SELECT X FROM NOWHERE]."},
    };
    auto query = session->NewQuery();
    for (const auto& [sql, text] : failures) {
        try {
            query->Exec(sql, 1, false);
            ADD_FAILURE() << "no exception for [" << sql << "]";
        } catch (const COracleExc& e) {
            EXPECT_EQ(e.code(), sql.empty() ? 24373u : 900u);
            EXPECT_EQ(std::string(e.what()), text);
        }
    }
}

} // namespace
