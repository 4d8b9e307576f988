// Drives OCI.dll through the library's own client layer, and past it where a
// careless caller would misuse the interface: the simulator refuses what a real
// client refuses, so a library bug cannot pass unnoticed.
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "support/ocisim_world.h"
#include "support/process.h"

#include <gtest/gtest.h>

using namespace specific::oracle;
using namespace specific::oracle::oci;

namespace {

// The code and text that the last failed call left in the session's error handle.
std::pair<sb4, std::string> last_error(const COracleSession& session)
{
    sb4 code = 0;
    OraText text[2048] = {};
    session.env->Ora().ErrorGet(session.env->ErrorHandle(), &code, text, sizeof text);
    return {code, reinterpret_cast<const char*>(text)};
}

TEST(ClientAbi, AttachNeedsAScenarioAndAKnownSid)
{
    test::ocisim_world_t world({{"ORCL"}});
    const auto refused = [](const std::wstring& sid) {
        test::set_process_env(L"ORACLE_SID", sid);
        COracleSession session(SOracleCredentials{});
        EXPECT_THROW(session.Init(OCI_SYSDBA), COracleExc);
        return last_error(session);
    };
    EXPECT_EQ(refused(L"NOPE"), std::make_pair(sb4{12560}, std::string("ORA-12560: TNS:protocol adapter error\n")));
    EXPECT_EQ(world.take_journal().front(), "attach sid=NOPE");
    test::set_process_env(L"OCISIM_SCENARIO", L"");
    EXPECT_EQ(refused(L"orcl").second, "ORA-12560: TNS:protocol adapter error (OCISIM_SCENARIO is not set)\n");
}

TEST(ClientAbi, CountedErrorFaultGivesItsMessageAndIsUsedUpAcrossAttaches)
{
    test::ocisim_world_t world;
    ocisim::World faulty;
    ocisim::add_typical_database(faulty, "ORCL", world.folder().file_utf8("db"))
        .add("fault", {{"kind", "error"},
                       {"text", "BEGIN BACKUP"},
                       {"code", "1652"},
                       {"message", "ORA-01652: unable to extend temp segment"},
                       {"times", "1"}});
    world.set_world(faulty);
    const auto first = test::sim_session();
    EXPECT_THROW(first->NewQuery()->ExecNoResult("ALTER DATABASE BEGIN BACKUP"), COracleExc);
    EXPECT_EQ(last_error(*first), std::make_pair(sb4{1652}, std::string("ORA-01652: unable to extend temp segment\n")));
    const auto second = test::sim_session();
    second->NewQuery()->ExecNoResult("ALTER DATABASE BEGIN BACKUP");
    EXPECT_EQ(second->NewQuery()->ExecValue("SELECT STATUS FROM V$BACKUP", false), L"ACTIVE")
        << "the fault was used up in the first attach";
}

TEST(ClientAbi, MisusedCallsAreRefusedBeforeAnythingChanges)
{
    test::ocisim_world_t world;
    ocisim::World typical;
    ocisim::add_typical_database(typical, "ORCL", world.folder().file_utf8("db"));
    world.set_world(typical);
    const auto session = test::sim_session();
    const CWinOraInterface& ora = session->env->Ora();
    OCIError* const err = session->env->ErrorHandle();
    OCISvcCtx* const svc = session->serviceContext->As<OCISvcCtx>();
    const auto prepare = [&](const std::string& sql) {
        OCIStmt* stmt = nullptr;
        ora.HandleAlloc(session->env->handle, reinterpret_cast<void**>(&stmt), OCI_HTYPE_STMT);
        ora.StmtPrepare(stmt, err, sql);
        return stmt;
    };

    OCIStmt* stmt = prepare("ALTER DATABASE BEGIN BACKUP");
    EXPECT_EQ(ora.StmtExecute(svc, stmt, err, 0), OCI_ERROR);
    EXPECT_EQ(last_error(*session).first, 24333);
    EXPECT_EQ(session->NewQuery()->ExecValue("SELECT STATUS FROM V$BACKUP", false), L"NOT ACTIVE");
    EXPECT_EQ(ora.HandleFree(stmt, OCI_HTYPE_STMT), OCI_SUCCESS);
    EXPECT_EQ(ora.HandleFree(stmt, OCI_HTYPE_STMT), OCI_INVALID_HANDLE);
    EXPECT_EQ(world.journal().back(), "free htype=4 invalid");
    void* handle = nullptr;
    EXPECT_EQ(ora.HandleAlloc(err, &handle, OCI_HTYPE_STMT), OCI_INVALID_HANDLE);
    try {
        session->NewQuery()->Exec("SELECT STATUS FROM V$INSTANCE", 2, false);
        ADD_FAILURE() << "a second column was defined past the select list";
    } catch (const COracleExc& e) {
        EXPECT_EQ(e.code(), 1007u);
    }

    stmt = prepare("BEGIN \n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \n END;");
    std::int32_t number = 0;
    const auto bind = [&](const std::string& name) {
        OCIBind* bound = nullptr;
        return ora.BindByName(stmt, &bound, err, name, &number, 4, SQLT_INT);
    };
    EXPECT_EQ(bind(":ftype"), OCI_SUCCESS);
    EXPECT_EQ(ora.StmtExecute(svc, stmt, err, 1), OCI_ERROR);
    EXPECT_EQ(last_error(*session).first, 1008) << "executed with unbound variables";
    EXPECT_EQ(bind(":nosuch"), OCI_ERROR);
    EXPECT_EQ(last_error(*session).first, 1036);
    ora.HandleFree(stmt, OCI_HTYPE_STMT);
}

} // namespace
