// Drives OCI.dll through its exports, as the library does: loaded at run time, with
// the calls and arguments of a real client.
#include "ocisim/oci_abi.h"
#include "ocisim/scenario_builder.h"
#include "support/temp_folder.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>

namespace ocisim {
namespace {

using namespace abi;

// An export of OCI.dll, looked up by name and taken as the function pointer type it is
// assigned to.
struct Export {
    const char* name;

    template <class F>
    operator F*() const {
        static const HMODULE module = LoadLibraryW(L"OCI.dll");
        if (!module) throw std::runtime_error("OCI.dll not found beside the test");
        void* address = reinterpret_cast<void*>(GetProcAddress(module, name));
        if (!address) throw std::runtime_error(std::string("OCI.dll has no export ") + name);
        return reinterpret_cast<F*>(address);
    }
};

struct Api {
    sword (*EnvCreate)(OCIEnv**, ub4, const void*, void* (*)(void*, size_t), void* (*)(void*, void*, size_t),
                       void (*)(void*, void*), size_t, void**) = Export{"OCIEnvCreate"};
    sword (*HandleAlloc)(const void*, void**, ub4, size_t, void**) = Export{"OCIHandleAlloc"};
    sword (*HandleFree)(void*, ub4) = Export{"OCIHandleFree"};
    sword (*ServerAttach)(OCIServer*, OCIError*, const OraText*, sb4, ub4) = Export{"OCIServerAttach"};
    sword (*ServerDetach)(OCIServer*, OCIError*, ub4) = Export{"OCIServerDetach"};
    sword (*AttrSet)(void*, ub4, void*, ub4, ub4, OCIError*) = Export{"OCIAttrSet"};
    sword (*SessionBegin)(OCISvcCtx*, OCIError*, OCISession*, ub4, ub4) = Export{"OCISessionBegin"};
    sword (*SessionEnd)(OCISvcCtx*, OCIError*, OCISession*, ub4) = Export{"OCISessionEnd"};
    sword (*StmtPrepare)(OCIStmt*, OCIError*, const OraText*, ub4, ub4, ub4) = Export{"OCIStmtPrepare"};
    sword (*DefineByPos)(OCIStmt*, OCIDefine**, OCIError*, ub4, void*, sb4, ub2, void*, ub2*, ub2*,
                         ub4) = Export{"OCIDefineByPos"};
    sword (*BindByName)(OCIStmt*, OCIBind**, OCIError*, const OraText*, sb4, void*, sb4, ub2, void*, ub2*, ub2*, ub4,
                        ub4*, ub4) = Export{"OCIBindByName"};
    sword (*StmtExecute)(OCISvcCtx*, OCIStmt*, OCIError*, ub4, ub4, const OCISnapshot*, OCISnapshot*,
                         ub4) = Export{"OCIStmtExecute"};
    sword (*StmtFetch2)(OCIStmt*, OCIError*, ub4, ub2, sb4, ub4) = Export{"OCIStmtFetch2"};
    sword (*ErrorGet)(void*, ub4, OraText*, sb4*, OraText*, ub4, ub4) = Export{"OCIErrorGet"};
};

const Api& api() {
    static const Api table;
    return table;
}

using Rows = std::vector<std::vector<std::string>>;

// One connection, made and used the way the library's client layer does it.
class Connection {
public:
    Connection() {
        api().EnvCreate(&env_, OCI_THREADED, nullptr, nullptr, nullptr, nullptr, 0, nullptr);
        api().HandleAlloc(env_, reinterpret_cast<void**>(&err_), OCI_HTYPE_ERROR, 0, nullptr);
        api().HandleAlloc(env_, reinterpret_cast<void**>(&svc_), OCI_HTYPE_SVCCTX, 0, nullptr);
        api().HandleAlloc(env_, reinterpret_cast<void**>(&server_), OCI_HTYPE_SERVER, 0, nullptr);
        api().HandleAlloc(env_, reinterpret_cast<void**>(&session_), OCI_HTYPE_SESSION, 0, nullptr);
    }

    ~Connection() {
        if (begun_) api().SessionEnd(svc_, err_, session_, OCI_DEFAULT);
        if (attached_) api().ServerDetach(server_, err_, OCI_DEFAULT);
        api().HandleFree(session_, OCI_HTYPE_SESSION);
        api().HandleFree(server_, OCI_HTYPE_SERVER);
        api().HandleFree(svc_, OCI_HTYPE_SVCCTX);
        api().HandleFree(err_, OCI_HTYPE_ERROR);
        api().HandleFree(env_, OCI_HTYPE_ENV);
    }

    sword attach() {
        const sword status = api().ServerAttach(server_, err_, nullptr, 0, OCI_DEFAULT);
        attached_ = status == OCI_SUCCESS;
        if (attached_) api().AttrSet(svc_, OCI_HTYPE_SVCCTX, server_, 0, OCI_ATTR_SERVER, err_);
        return status;
    }

    // Attaches and logs on as SYSDBA by OS authentication.
    sword connect() {
        sword status = attach();
        if (status != OCI_SUCCESS) return status;
        status = api().SessionBegin(svc_, err_, session_, OCI_CRED_EXT, OCI_SYSDBA);
        begun_ = status == OCI_SUCCESS;
        if (begun_) api().AttrSet(svc_, OCI_HTYPE_SVCCTX, session_, 0, OCI_ATTR_SESSION, err_);
        return status;
    }

    // A new statement handle with `sql` prepared on it; the status of the prepare goes to `status`.
    OCIStmt* prepare(const std::string& sql, sword* status = nullptr) {
        OCIStmt* stmt = nullptr;
        api().HandleAlloc(env_, reinterpret_cast<void**>(&stmt), OCI_HTYPE_STMT, 0, nullptr);
        const sword prepared = api().StmtPrepare(stmt, err_, reinterpret_cast<const OraText*>(sql.data()),
                                                 static_cast<ub4>(sql.size()), OCI_NTV_SYNTAX, OCI_DEFAULT);
        if (status) *status = prepared;
        return stmt;
    }

    sword execute(OCIStmt* stmt, ub4 iters = 1) {
        return api().StmtExecute(svc_, stmt, err_, iters, 0, nullptr, nullptr, OCI_DEFAULT);
    }

    // Runs a statement and fetches its rows into 1024-byte SQLT_STR buffers.
    sword run(const std::string& sql, ub4 columns, Rows* rows = nullptr) {
        sword status = OCI_SUCCESS;
        OCIStmt* stmt = prepare(sql, &status);
        std::vector<std::vector<char>> buffers(columns, std::vector<char>(1024));
        std::vector<sb2> ind(columns, 0);
        std::vector<OCIDefine*> defines(columns, nullptr);
        for (ub4 i = 0; i < columns && status == OCI_SUCCESS; ++i)
            status = api().DefineByPos(stmt, &defines[i], err_, i + 1, buffers[i].data(), 1024, SQLT_STR, &ind[i],
                                       nullptr, nullptr, OCI_DEFAULT);
        if (status == OCI_SUCCESS) status = execute(stmt, columns == 0 ? 1 : 0);
        while (status == OCI_SUCCESS && columns > 0) {
            const sword fetched = api().StmtFetch2(stmt, err_, 1, OCI_FETCH_NEXT, 0, OCI_DEFAULT);
            if (fetched != OCI_SUCCESS && fetched != OCI_SUCCESS_WITH_INFO) break;
            std::vector<std::string> row;
            for (const auto& buffer : buffers) row.emplace_back(buffer.data());
            if (rows) rows->push_back(row);
        }
        for (OCIDefine* define : defines)
            if (define) api().HandleFree(define, OCI_HTYPE_DEFINE);
        api().HandleFree(stmt, OCI_HTYPE_STMT);
        return status;
    }

    std::string value(const std::string& sql) {
        Rows rows;
        run(sql, 1, &rows);
        return rows.empty() ? "(no row)" : rows[0][0];
    }

    sb4 error_code() const { return error().first; }

    std::pair<sb4, std::string> error() const {
        sb4 code = 0;
        OraText text[2048] = {};
        api().ErrorGet(err_, 1, nullptr, &code, text, sizeof text, OCI_HTYPE_ERROR);
        return {code, reinterpret_cast<const char*>(text)};
    }

    OCIError* err() const { return err_; }

private:
    OCIEnv* env_ = nullptr;
    OCIError* err_ = nullptr;
    OCISvcCtx* svc_ = nullptr;
    OCIServer* server_ = nullptr;
    OCISession* session_ = nullptr;
    bool attached_ = false;
    bool begun_ = false;
};

class ClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        db_ = &add_typical_database(world_, "ORCL", std::filesystem::path(dir_.path()).u8string());
        SetEnvironmentVariableW(L"OCISIM_SCENARIO", dir_.file(L"scenario.txt").c_str());
        SetEnvironmentVariableW(L"OCISIM_JOURNAL", dir_.file(L"journal.txt").c_str());
        SetEnvironmentVariableW(L"OCISIM_STATE", nullptr);
        SetEnvironmentVariableW(L"ORACLE_SID", L"ORCL");
    }

    void TearDown() override {
        SetEnvironmentVariableW(L"OCISIM_SCENARIO", nullptr);
        SetEnvironmentVariableW(L"OCISIM_JOURNAL", nullptr);
    }

    void write() { write_scenario(scenario_, world_); }
    std::vector<std::string> journal() const { return read_journal(dir_.file_utf8("journal.txt")); }

    test::temp_folder_t dir_;
    std::string scenario_ = dir_.file_utf8("scenario.txt");
    World world_;
    Instance* db_ = nullptr;
};

TEST_F(ClientTest, AttachNeedsAScenarioAndAKnownSid) {
    write();
    SetEnvironmentVariableW(L"ORACLE_SID", L"NOPE");
    {
        Connection c;
        EXPECT_EQ(c.attach(), OCI_ERROR);
        EXPECT_EQ(c.error(), std::make_pair(sb4{12560}, std::string("ORA-12560: TNS:protocol adapter error\n")));
    }
    SetEnvironmentVariableW(L"ORACLE_SID", L"orcl");
    SetEnvironmentVariableW(L"OCISIM_SCENARIO", nullptr);
    Connection c;
    EXPECT_EQ(c.attach(), OCI_ERROR);
    EXPECT_EQ(c.error().second, "ORA-12560: TNS:protocol adapter error (OCISIM_SCENARIO is not set)\n");
    EXPECT_EQ(journal().front(), "attach sid=NOPE");
}

TEST_F(ClientTest, CountedErrorFaultGivesItsMessageAndIsUsedUpAcrossAttaches) {
    db_->add("fault", {{"kind", "error"},
                       {"text", "BEGIN BACKUP"},
                       {"code", "1652"},
                       {"message", "ORA-01652: unable to extend temp segment"},
                       {"times", "1"}});
    write();
    {
        Connection c;
        ASSERT_EQ(c.connect(), OCI_SUCCESS);
        EXPECT_EQ(c.run("ALTER DATABASE BEGIN BACKUP", 0), OCI_ERROR);
        EXPECT_EQ(c.error(), std::make_pair(sb4{1652}, std::string("ORA-01652: unable to extend temp segment\n")));
    }
    Connection c;
    ASSERT_EQ(c.connect(), OCI_SUCCESS);
    EXPECT_EQ(c.run("ALTER DATABASE BEGIN BACKUP", 0), OCI_SUCCESS) << "the fault was used up in the last attach";
    EXPECT_EQ(c.value("SELECT STATUS FROM V$BACKUP"), "ACTIVE");
}

TEST_F(ClientTest, MisusedCallsAreRefusedBeforeAnythingChanges) {
    write();
    Connection c;
    ASSERT_EQ(c.connect(), OCI_SUCCESS);
    OCIStmt* stmt = c.prepare("ALTER DATABASE BEGIN BACKUP");
    EXPECT_EQ(c.execute(stmt, 0), OCI_ERROR);
    EXPECT_EQ(c.error_code(), 24333);
    EXPECT_EQ(c.value("SELECT STATUS FROM V$BACKUP"), "NOT ACTIVE");
    EXPECT_EQ(api().HandleFree(stmt, OCI_HTYPE_STMT), OCI_SUCCESS);
    EXPECT_EQ(api().HandleFree(stmt, OCI_HTYPE_STMT), OCI_INVALID_HANDLE);
    EXPECT_EQ(journal().back(), "free htype=4 invalid");
    void* handle = nullptr;
    EXPECT_EQ(api().HandleAlloc(c.err(), &handle, OCI_HTYPE_STMT, 0, nullptr), OCI_INVALID_HANDLE);
    EXPECT_EQ(c.run("SELECT STATUS FROM V$INSTANCE", 2), OCI_ERROR);
    EXPECT_EQ(c.error_code(), 1007);

    stmt = c.prepare("BEGIN \n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \n END;");
    std::int32_t number = 0;
    const auto bind = [&](const char* name) {
        OCIBind* bound = nullptr;
        return api().BindByName(stmt, &bound, c.err(), reinterpret_cast<const OraText*>(name), -1, &number, 4,
                                SQLT_INT, nullptr, nullptr, nullptr, 0, nullptr, OCI_DEFAULT);
    };
    EXPECT_EQ(bind(":ftype"), OCI_SUCCESS);
    EXPECT_EQ(c.execute(stmt), OCI_ERROR);
    EXPECT_EQ(c.error_code(), 1008) << "executed with unbound variables";
    EXPECT_EQ(bind(":nosuch"), OCI_ERROR);
    EXPECT_EQ(c.error_code(), 1036);
    api().HandleFree(stmt, OCI_HTYPE_STMT);
}

}  // namespace
}  // namespace ocisim
