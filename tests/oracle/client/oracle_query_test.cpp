#include "support/ocisim_world.h"

#include "oracle/client/cmd_exec.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"
#include "support/capturing_receiver.h"
#include "support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <fstream>
#include <regex>

using namespace specific::oracle;
using CSimWorld = test::ocisim_world_t;
using testing::ElementsAre;

namespace {

const char kListeners[] = "SELECT NAME, VALUE FROM V$PARAMETER WHERE NAME LIKE '%_listener'";

std::string listener(const std::string& name, const std::string& value)
{
    return "parameter = name=" + name + "_listener | value=" + value + "\n";
}

std::shared_ptr<COracleSession> logon()
{
    return COracleSessionHolder(L"ORCL", L"C:\\h", {}, false).GetSession();
}

std::vector<std::string> sql_lines(const CSimWorld& world)
{
    return world.journal_starting({"sql ", "bind "});
}

} // namespace

TEST(OracleQuery, RowsWithNullOrTruncatedValuesAreDroppedWholeAndOthersWidenedBytewise)
{
    {
        CSimWorld world("[instance ORCL]\n" + listener("a", "tcp \xE9") + listener("b", "") +
                        listener("c", std::string(1024, 'x')) + listener("d", std::string(1023, 'y')));
        auto session = logon();
        const std::vector<COracleRow> rows = session->NewQuery()->Exec(kListeners, 2, false)->rows;
        EXPECT_EQ(rows, (std::vector<COracleRow>{{L"a_listener", std::wstring(L"tcp ") + wchar_t(0xFFE9)},
                                                 {L"d_listener", std::wstring(1023, L'y')}}));
        EXPECT_EQ(session->NewQuery()->ExecFirstRow(kListeners, 2, true),
                  (COracleRow{L"A_LISTENER", std::wstring(L"TCP ") + wchar_t(0xFFE9)}))
            << "upper-cased only on request";
    }
    CSimWorld world("[instance ORCL]\n" + listener("a", "1") + listener("b", "2") + listener("c", "3") +
                    "fault = kind=fetch_fail | text=V$PARAMETER | after=2\n");
    EXPECT_EQ(logon()->NewQuery()->Exec(kListeners, 2, false)->rows.size(), 2u) << "a failing fetch ends the rows";
    EXPECT_THAT(world.journal(), testing::Contains("fault sid=ORCL kind=fetch_fail at=fetch"));
}

TEST(OracleQuery, EmptyResultsGiveNoRowsAndFailuresCarryTheirLinesAndTheServerCode)
{
    CSimWorld world("[instance ORCL]\nstatus = STARTED\n");
    auto session = logon();
    session->NewQuery()->ExecNoResult("ALTER DATABASE MOUNT");
    EXPECT_EQ(session->NewQuery()->ExecValue("SELECT VALUE FROM V$PARAMETER WHERE NAME='none'", false), L"");
    EXPECT_TRUE(session->NewQuery()->ExecFirstRow(kListeners, 2, false).empty());
    EXPECT_THAT(sql_lines(world), ElementsAre("sql sid=ORCL text=ALTER DATABASE MOUNT",
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

TEST(OracleSessionOps, DatabaseOptionsNameAndVersionFlagsEachAskedOnce)
{
    struct SCase {
        std::string props;
        bool readOnly;
        bool archiveLog;
        bool atMost10;
        bool atLeast12;
    };
    const SCase cases[] = {
        {"open_mode = READ WRITE\nlog_mode = NOARCHIVELOG\nversion = 11.2.0.4.0\n", false, false, false, false},
        {"open_mode = READ ONLY WITH APPLY\nversion = 10.2.0.1.0\n", true, true, true, false},
        {"version = 12.1.0.2.0\n", false, true, false, true},
        {"version = 19\n", false, true, false, false},
    };
    for (const SCase& c : cases) {
        CSimWorld world("[instance ORCL]\nname = orcl\n" + c.props);
        auto session = logon();
        bool readOnly = !c.readOnly;
        bool archiveLog = !c.archiveLog;
        session->GetDatabaseOptions(readOnly, archiveLog);
        EXPECT_EQ(readOnly, c.readOnly) << c.props;
        EXPECT_EQ(archiveLog, c.archiveLog) << c.props;
        EXPECT_EQ(session->IsVersion10OrLower(), c.atMost10) << c.props;
        EXPECT_EQ(session->IsVersion12OrHigher(), c.atLeast12) << c.props;
        EXPECT_EQ(session->GetDbName(), L"ORCL");
        EXPECT_EQ(session->GetDbName(), L"ORCL");
        const std::vector<std::string> lines = sql_lines(world);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "sql sid=ORCL text=SELECT VERSION FROM V$INSTANCE"), 1);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "sql sid=ORCL text=SELECT NAME FROM V$DATABASE"), 1);
    }
}

TEST(OracleCmdExec, AsmFileAttributesBindPathAndThreeIntegersAndFailureIsFalse)
{
    CSimWorld world("[instance ORCL]\nasm_file = name=+DATA/orcl/1_5.arc | blocks=7 | type=4\n");
    auto session = logon();
    testing_support::log_capture_t log;
    EXPECT_TRUE(GetAsmFileAttr(session, "+DATA/orcl/1_5.arc"));
    EXPECT_THAT(log.texts(), testing::Contains(testing::EndsWith("ASM file: +DATA/orcl/1_5.arc, type: 4, size: 7")));
    EXPECT_THAT(sql_lines(world), ElementsAre("bind name=:fname value=+DATA/orcl/1_5.arc", "bind name=:ftype value=0",
                                              "bind name=:fsize value=0", "bind name=:blksize value=0",
                                              "sql sid=ORCL text=BEGIN \\n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \\n END;"));
    EXPECT_FALSE(GetAsmFileAttr(session, "+DATA/orcl/none.arc"));
}

TEST(OracleCmdExec, CopyRunsFiveStatementsWithTwoFreshDirectoryObjects)
{
    test::temp_folder_t folder;
    CreateDirectoryW(folder.file(L"from").c_str(), nullptr);
    CreateDirectoryW(folder.file(L"to").c_str(), nullptr);
    std::ofstream(folder.file(L"from\\1_5.arc").c_str()) << "redo";
    const std::string from = folder.file_utf8("from");
    const std::string to = folder.file_utf8("to");
    CSimWorld world("[instance ORCL]\n");
    CopyAsmFile(logon(), from + "\\1_5.arc", to + "/copy.arc");

    const std::vector<std::string> lines = sql_lines(world);
    ASSERT_EQ(lines.size(), 5u);
    const std::string prefix = "sql sid=ORCL text=CREATE DIRECTORY ";
    const std::string source = lines[0].substr(prefix.size(), 26);
    const std::string target = lines[1].substr(prefix.size(), 26);
    // A letter, then the GUID with its dashes made underscores: a valid object name.
    const std::regex objectName("[A-Z]_[0-9A-F]{8}_[0-9A-F]{4}_[0-9A-F]{4}_[0-9A-F]{4}_");
    EXPECT_TRUE(std::regex_match(source, objectName)) << source;
    EXPECT_TRUE(std::regex_match(target, objectName)) << target;
    EXPECT_NE(source, target);
    EXPECT_EQ(lines[0], prefix + source + " AS '" + from + "'");
    EXPECT_EQ(lines[1], prefix + target + " AS '" + to + "'");
    EXPECT_EQ(lines[2], "sql sid=ORCL text=BEGIN\\n DBMS_FILE_TRANSFER.COPY_FILE('" + source + "', '1_5.arc', '" +
                            target + "', 'copy.arc');\\n END;");
    EXPECT_EQ(lines[3], "sql sid=ORCL text=DROP DIRECTORY " + source);
    EXPECT_EQ(lines[4], "sql sid=ORCL text=DROP DIRECTORY " + target);
    EXPECT_NE(GetFileAttributesW(folder.file(L"to\\copy.arc").c_str()), INVALID_FILE_ATTRIBUTES);
}
