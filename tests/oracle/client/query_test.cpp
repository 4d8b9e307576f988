#include "fake_client.h"

#include "oracle/client/cmd_exec.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace specific::oracle;
using oracle_client_test::SFakeClient;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<std::string> calls_starting(const std::vector<std::string>& calls, const std::string& word)
{
    std::vector<std::string> found;
    for (const auto& call : calls)
        if (call.compare(0, word.size(), word) == 0)
            found.push_back(call);
    return found;
}

} // namespace

TEST(OracleQuery, RowsWithNullOrTruncatedValuesAreDroppedWhole)
{
    SFakeClient fake;
    fake.rows = {{std::string("A"), std::string("1")},
                 {std::nullopt, std::string("2")},
                 {std::string(1024, 'x'), std::string("3")},
                 {std::string(1023, 'y'), std::string("4")}};
    auto result = fake.Session()->NewQuery()->Exec("SELECT A, B FROM T", 2, false);
    ASSERT_EQ(result->rows.size(), 2u);
    EXPECT_EQ(result->rows[0], (COracleRow{L"A", L"1"}));
    EXPECT_EQ(result->rows[1], (COracleRow{std::wstring(1023, L'y'), L"4"}));
}

TEST(OracleQuery, DefinesEachColumnAsStringOf1024BytesAndFreesDefinesBeforeStatement)
{
    SFakeClient fake;
    auto query = fake.Session()->NewQuery();
    fake.calls.clear();
    query->Exec("SELECT A, B FROM T", 2, false);
    EXPECT_THAT(calls_starting(fake.calls, "define"),
                ElementsAre("define 1 size=1024 dty=5", "define 2 size=1024 dty=5"));
    EXPECT_THAT(calls_starting(fake.calls, "execute"), ElementsAre("execute iters=0"));
    EXPECT_THAT(calls_starting(fake.calls, "free"), ElementsAre("free 6", "free 6", "free 4"));
    EXPECT_EQ(fake.calls.front(), "attr 7");
}

TEST(OracleQuery, StatementWithoutColumnsExecutesOnceAndFetchesNothing)
{
    SFakeClient fake;
    auto query = fake.Session()->NewQuery();
    fake.calls.clear();
    auto result = query->Exec("ALTER DATABASE MOUNT", 0, true);
    EXPECT_TRUE(result->rows.empty());
    EXPECT_TRUE(calls_starting(fake.calls, "define").empty());
    EXPECT_TRUE(calls_starting(fake.calls, "fetch").empty());
    EXPECT_THAT(calls_starting(fake.calls, "execute"), ElementsAre("execute iters=1"));
}

TEST(OracleQuery, FailingFetchEndsTheRowsWithoutAnError)
{
    SFakeClient fake;
    fake.rows = {{std::string("1")}, {std::string("2")}, {std::string("3")}, {std::string("4")}};
    fake.failFetchAt = 3;
    auto result = fake.Session()->NewQuery()->Exec("SELECT N FROM T", 1, false);
    ASSERT_EQ(result->rows.size(), 2u);
    EXPECT_EQ(result->rows[1][0], L"2");
}

TEST(OracleQuery, ValuesAreWidenedBytewiseAndUpperCasedOnlyOnRequest)
{
    SFakeClient fake;
    fake.rows = {{std::string("open \xE9")}};
    auto session = fake.Session();
    EXPECT_EQ(session->NewQuery()->ExecValue("SELECT STATUS FROM V$INSTANCE", false),
              std::wstring(L"open ") + wchar_t(0xFFE9));
    EXPECT_EQ(session->NewQuery()->ExecValue("SELECT STATUS FROM V$INSTANCE", true),
              std::wstring(L"OPEN ") + wchar_t(0xFFE9));
}

TEST(OracleQuery, FirstRowAndValueOfAnEmptyResultAreEmpty)
{
    SFakeClient fake;
    auto query = fake.Session()->NewQuery();
    EXPECT_TRUE(query->ExecFirstRow("SELECT A, B FROM T", 2, false).empty());
    EXPECT_EQ(query->ExecValue("SELECT A FROM T", false), L"");
}

TEST(OracleQuery, NextWalksTheRowsOnceAndLeavesTheRowAfterTheLast)
{
    COracleQueryResult result({{L"a"}, {L"b"}});
    COracleRow row;
    ASSERT_TRUE(result.Next(row));
    EXPECT_EQ(row, COracleRow{L"a"});
    ASSERT_TRUE(result.Next(row));
    EXPECT_EQ(row, COracleRow{L"b"});
    EXPECT_FALSE(result.Next(row));
    EXPECT_EQ(row, COracleRow{L"b"});
}

TEST(OracleQuery, PrepareFailureCarriesBothLinesAndTheServerCode)
{
    SFakeClient fake;
    fake.prepareResult = oci::OCI_ERROR;
    fake.errorCode = 900;
    fake.errorText = "ORA-00900: invalid SQL statement\n";
    try {
        fake.Session()->NewQuery()->Exec("SELEC 1", 1, false);
        FAIL() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_EQ(e.code(), 900u);
        EXPECT_EQ(std::string(e.what()),
                  "Oracle error has occurred. ORA-00900: invalid SQL statement\n\n"
                  "--tr:OracleSession: failed to create OCI Stmt.\n"
                  "--tr:Failed to exec query [SELEC 1].");
    }
}

TEST(OracleQuery, ExecuteFailureNamesTheQueryOnly)
{
    SFakeClient fake;
    fake.executeResult = oci::OCI_ERROR;
    fake.errorCode = 942;
    fake.errorText = "ORA-00942: table or view does not exist";
    try {
        fake.Session()->NewQuery()->Exec("SELECT X FROM Y", 1, false);
        FAIL() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_EQ(std::string(e.what()), "Oracle error has occurred. ORA-00942: table or view does "
                                         "not exist\n--tr:Failed to exec query [SELECT X FROM Y].");
    }
}

TEST(OracleSessionOps, DatabaseOptionsReadOnlyAndArchiveLogByPrefix)
{
    SFakeClient fake;
    auto session = fake.Session();
    bool readOnly = true;
    bool archiveLog = true;
    fake.rows = {{std::string("read write"), std::string("noarchivelog")}};
    session->GetDatabaseOptions(readOnly, archiveLog);
    EXPECT_FALSE(readOnly);
    EXPECT_FALSE(archiveLog);
    fake.rows = {{std::string("READ ONLY WITH APPLY"), std::string("ARCHIVELOG")}};
    session->GetDatabaseOptions(readOnly, archiveLog);
    EXPECT_TRUE(readOnly);
    EXPECT_TRUE(archiveLog);
}

TEST(OracleSessionOps, DatabaseNameIsAskedOnceAndUpperCased)
{
    SFakeClient fake;
    auto session = fake.Session();
    fake.rows = {{std::string("orcl")}};
    EXPECT_EQ(session->GetDbName(), L"ORCL");
    EXPECT_EQ(session->GetDbName(), L"ORCL");
    EXPECT_THAT(calls_starting(fake.calls, "prepare"), ElementsAre("prepare SELECT NAME FROM V$DATABASE"));
}

TEST(OracleSessionOps, VersionFlagsFollowTheMajorNumber)
{
    const std::pair<std::string, std::pair<bool, bool>> cases[] = {
        {"11.2.0.4.0", {false, false}}, {"10.2.0.1.0", {true, false}},
        {"12.1.0.2.0", {false, true}},  {"19", {false, false}}};
    for (const auto& [text, flags] : cases) {
        SFakeClient fake;
        fake.rows = {{text}};
        auto session = fake.Session();
        EXPECT_EQ(session->IsVersion10OrLower(), flags.first) << text;
        EXPECT_EQ(session->IsVersion12OrHigher(), flags.second) << text;
        EXPECT_EQ(calls_starting(fake.calls, "prepare").size(), 1u) << text;
    }
}

TEST(OracleSessionOps, DownInstanceHasNoVersionAndAsksNothing)
{
    SFakeClient fake;
    auto session = fake.Session();
    session->instanceShutdown = true;
    EXPECT_FALSE(session->IsVersion12OrHigher());
    EXPECT_FALSE(session->IsVersion10OrLower());
    EXPECT_TRUE(calls_starting(fake.calls, "prepare").empty());
}

TEST(OracleSessionOps, ShutdownClosesAndDismountsBetweenImmediateAndFinal)
{
    SFakeClient fake;
    auto session = fake.Session();
    fake.calls.clear();
    session->Shutdown();
    std::vector<std::string> steps;
    for (const auto& call : fake.calls)
        if (call.rfind("shutdown", 0) == 0 || call.rfind("prepare", 0) == 0)
            steps.push_back(call);
    EXPECT_THAT(steps, ElementsAre("shutdown 3", "prepare ALTER DATABASE CLOSE NORMAL",
                                   "prepare ALTER DATABASE DISMOUNT", "shutdown 5"));
}

TEST(OracleCmdExec, AsmFileAttributesBindPathAndThreeIntegers)
{
    SFakeClient fake;
    auto session = fake.Session();
    EXPECT_TRUE(GetAsmFileAttr(session, "+DATA/orcl/arch/1_5.arc"));
    EXPECT_THAT(calls_starting(fake.calls, "prepare"),
                ElementsAre("prepare BEGIN \n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \n END;"));
    EXPECT_THAT(calls_starting(fake.calls, "bind"),
                ElementsAre("bind :fname size=24 dty=5", "bind :ftype size=4 dty=3",
                            "bind :fsize size=4 dty=3", "bind :blksize size=4 dty=3"));
    EXPECT_THAT(calls_starting(fake.calls, "execute"), ElementsAre("execute iters=1"));
}

TEST(OracleCmdExec, AsmFileAttributesFailureIsFalseNotAnException)
{
    SFakeClient fake;
    auto session = fake.Session();
    fake.executeResult = oci::OCI_ERROR;
    fake.errorCode = 15056;
    fake.errorText = "ORA-15056: additional error message";
    EXPECT_FALSE(GetAsmFileAttr(session, "+DATA/none"));
}

TEST(OracleCmdExec, CopyRunsFiveStatementsWithTheSameTwoObjectNames)
{
    SFakeClient fake;
    auto session = fake.Session();
    CopyAsmFile(session, "+DATA/orcl/arch/1_5.arc", "C:\\temp\\logs/1_5.arc");
    const std::vector<std::string> statements = calls_starting(fake.calls, "prepare");
    ASSERT_EQ(statements.size(), 5u);
    const std::string source = statements[0].substr(std::string("prepare CREATE DIRECTORY ").size(), 26);
    const std::string target = statements[1].substr(std::string("prepare CREATE DIRECTORY ").size(), 26);
    EXPECT_NE(source, target);
    EXPECT_EQ(statements[0], "prepare CREATE DIRECTORY " + source + " AS '+DATA/orcl/arch'");
    EXPECT_EQ(statements[1], "prepare CREATE DIRECTORY " + target + " AS 'C:\\temp\\logs'");
    EXPECT_EQ(statements[2], "prepare BEGIN\n DBMS_FILE_TRANSFER.COPY_FILE('" + source +
                                 "', '1_5.arc', '" + target + "', '1_5.arc');\n END;");
    EXPECT_EQ(statements[3], "prepare DROP DIRECTORY " + source);
    EXPECT_EQ(statements[4], "prepare DROP DIRECTORY " + target);
}

TEST(OracleCmdExec, CopyFailureStopsAtTheFailingStepAndNamesBothPaths)
{
    SFakeClient fake;
    auto session = fake.Session();
    fake.executeResult = oci::OCI_ERROR;
    fake.errorCode = 1031;
    fake.errorText = "ORA-01031: insufficient privileges";
    try {
        CopyAsmFile(session, "+DATA/a.arc", "C:\\b\\a.arc");
        FAIL() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_THAT(e.what(), HasSubstr("--tr:Failed to copy ASM file, from: [+DATA/a.arc], to: [C:\\b\\a.arc]"));
    }
    EXPECT_EQ(calls_starting(fake.calls, "prepare").size(), 1u);
}

TEST(OracleCmdExec, DirectoryObjectNamesAreLetterPlusGuidPrefixAndUnique)
{
    const std::string first = MakeDirectoryObjectName();
    const std::string second = MakeDirectoryObjectName();
    EXPECT_NE(first, second);
    for (const std::string& name : {first, second}) {
        ASSERT_EQ(name.size(), 26u) << name;
        EXPECT_TRUE(std::isupper(static_cast<unsigned char>(name[0]))) << name;
        EXPECT_EQ(name[1], '_') << name;
        EXPECT_EQ(name[25], '_') << name;
        EXPECT_TRUE(std::all_of(name.begin(), name.end(), [](char c) {
            return c == '_' || std::isdigit(static_cast<unsigned char>(c)) ||
                   std::isupper(static_cast<unsigned char>(c));
        })) << name;
    }
}
