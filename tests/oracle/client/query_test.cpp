#include "sim_world.h"

#include "oracle/client/cmd_exec.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"
#include "support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <fstream>

using namespace specific::oracle;
using oracle_client_test::CSimWorld;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const char kListeners[] = "SELECT NAME, VALUE FROM V$PARAMETER WHERE NAME LIKE '%_listener'";

std::string listener(const std::string& name, const std::string& value)
{
    return "parameter = name=" + name + "_listener | value=" + value + "\n";
}

std::shared_ptr<COracleSession> logon(const std::wstring& sid = L"ORCL")
{
    return COracleSessionHolder(sid, L"C:\\h", {}, false).GetSession();
}

std::vector<std::string> sql_lines(const CSimWorld& world)
{
    std::vector<std::string> found;
    for (const auto& line : world.Journal())
        if (line.rfind("sql ", 0) == 0 || line.rfind("bind ", 0) == 0)
            found.push_back(line);
    return found;
}

} // namespace

TEST(OracleQuery, RowsWithNullOrTruncatedValuesAreDroppedWhole)
{
    CSimWorld world("[instance ORCL]\n" + listener("a", "one") + listener("b", "") +
                    listener("c", std::string(1024, 'x')) + listener("d", std::string(1023, 'y')));
    auto result = logon()->NewQuery()->Exec(kListeners, 2, false);
    ASSERT_EQ(result->rows.size(), 2u);
    EXPECT_EQ(result->rows[0], (COracleRow{L"a_listener", L"one"}));
    EXPECT_EQ(result->rows[1], (COracleRow{L"d_listener", std::wstring(1023, L'y')}));
}

TEST(OracleQuery, FailingFetchEndsTheRowsWithoutAnError)
{
    CSimWorld world("[instance ORCL]\n" + listener("a", "1") + listener("b", "2") + listener("c", "3") +
                    "fault = kind=fetch_fail | text=V$PARAMETER | after=2\n");
    auto result = logon()->NewQuery()->Exec(kListeners, 2, false);
    EXPECT_EQ(result->rows.size(), 2u);
    EXPECT_THAT(world.Journal(), testing::Contains("fault sid=ORCL kind=fetch_fail at=fetch"));
}

TEST(OracleQuery, ValuesAreWidenedBytewiseAndUpperCasedOnlyOnRequest)
{
    CSimWorld world("[instance ORCL]\n" + listener("a", "tcp \xE9"));
    auto session = logon();
    EXPECT_EQ(session->NewQuery()->ExecFirstRow(kListeners, 2, false)[1],
              std::wstring(L"tcp ") + wchar_t(0xFFE9));
    EXPECT_EQ(session->NewQuery()->ExecFirstRow(kListeners, 2, true)[1],
              std::wstring(L"TCP ") + wchar_t(0xFFE9));
}

TEST(OracleQuery, StatementWithoutColumnsAndEmptyResultsGiveNoRows)
{
    CSimWorld world("[instance ORCL]\nstatus = STARTED\n");
    auto session = logon();
    session->NewQuery()->ExecNoResult("ALTER DATABASE MOUNT");
    EXPECT_EQ(session->NewQuery()->ExecValue("SELECT VALUE FROM V$PARAMETER WHERE NAME='none'", false), L"");
    EXPECT_TRUE(session->NewQuery()->ExecFirstRow(kListeners, 2, false).empty());
    EXPECT_THAT(sql_lines(world), ElementsAre("sql sid=ORCL text=ALTER DATABASE MOUNT",
                                              "sql sid=ORCL text=SELECT VALUE FROM V$PARAMETER WHERE NAME='none'",
                                              std::string("sql sid=ORCL text=") + kListeners));
}


TEST(OracleQuery, PrepareAndExecuteFailuresCarryTheirLinesAndTheServerCode)
{
    CSimWorld world("[instance ORCL]\n");
    auto session = logon();
    auto query = session->NewQuery();
    try {
        query->Exec("", 1, false);
        FAIL() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_EQ(e.code(), 24373u);
        EXPECT_EQ(std::string(e.what()),
                  "Oracle error has occurred. ORA-24373: invalid length specified for statement\n\n"
                  "--tr:OracleSession: failed to create OCI Stmt.\n"
                  "--tr:Failed to exec query [].");
    }
    try {
        query->Exec("SELECT X FROM NOWHERE", 1, false);
        FAIL() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_EQ(e.code(), 900u);
        EXPECT_EQ(std::string(e.what()), "Oracle error has occurred. ORA-00900: invalid SQL statement\n\n"
                                         "--tr:Failed to exec query [SELECT X FROM NOWHERE].");
    }
}

TEST(OracleSessionOps, DatabaseOptionsNameAndVersionFlags)
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
    CSimWorld world("[instance ORCL]\nasm_file = name=+DATA/orcl/1_5.arc\n");
    auto session = logon();
    EXPECT_TRUE(GetAsmFileAttr(session, "+DATA/orcl/1_5.arc"));
    const std::vector<std::string> lines = sql_lines(world);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_THAT(lines, ElementsAre("bind name=:fname value=+DATA/orcl/1_5.arc", "bind name=:ftype value=0",
                                   "bind name=:fsize value=0", "bind name=:blksize value=0",
                                   "sql sid=ORCL text=BEGIN \\n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \\n END;"));
    EXPECT_FALSE(GetAsmFileAttr(session, "+DATA/orcl/none.arc"));
}

TEST(OracleCmdExec, CopyRunsFiveStatementsWithTheSameTwoObjectNames)
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
    EXPECT_NE(source, target);
    EXPECT_EQ(lines[0], prefix + source + " AS '" + from + "'");
    EXPECT_EQ(lines[1], prefix + target + " AS '" + to + "'");
    EXPECT_EQ(lines[2], "sql sid=ORCL text=BEGIN\\n DBMS_FILE_TRANSFER.COPY_FILE('" + source + "', '1_5.arc', '" +
                            target + "', 'copy.arc');\\n END;");
    EXPECT_EQ(lines[3], "sql sid=ORCL text=DROP DIRECTORY " + source);
    EXPECT_EQ(lines[4], "sql sid=ORCL text=DROP DIRECTORY " + target);
    EXPECT_NE(GetFileAttributesW(folder.file(L"to\\copy.arc").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(OracleCmdExec, DirectoryObjectNamesAreALetterAndTheGuidPrefix)
{
    const std::string name = MakeDirectoryObjectName();
    ASSERT_EQ(name.size(), 26u);
    EXPECT_TRUE(std::isupper(static_cast<unsigned char>(name[0])));
    EXPECT_EQ(name[1], '_');
    EXPECT_EQ(name[25], '_');
    EXPECT_EQ(std::count(name.begin(), name.end(), '_'), 5);
    EXPECT_EQ(name.find_first_not_of("ABCDEF0123456789_", 1), std::string::npos);
    EXPECT_NE(MakeDirectoryObjectName(), name);
}
