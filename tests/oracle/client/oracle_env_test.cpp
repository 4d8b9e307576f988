#include "oracle/client/oracle_env.h"

#include "oracle/client/oracle_exc.h"
#include "oracle/client/session_holder.h"
#include "support/ocisim_world.h"

#include <gtest/gtest.h>

using namespace specific::oracle;
using CSimWorld = test::ocisim_world_t;

TEST(OracleCheck, ServerErrorsKeepCodeAndTextOtherFailuresAreUnexpectedAndInfoOrNoDataPass)
{
    CSimWorld world({{"ORCL"}});
    COracleSessionHolder holder(L"ORCL", L"C:\\h", {}, false);
    COracleEnv& env = *holder.GetSession()->env;
    EXPECT_EQ(env.Check(oci::OCI_SUCCESS_WITH_INFO), 0);
    EXPECT_EQ(env.Check(oci::OCI_NO_DATA), 0);
    const std::pair<oci::sword, std::string> unexpected[] = {
        {oci::OCI_INVALID_HANDLE, "Unexpected Oracle error has occurred. Code: 4294967294"},
        {oci::OCI_NEED_DATA, "Unexpected Oracle error has occurred. Code: 99"},
    };
    for (const auto& [status, text] : unexpected) {
        std::string caught;
        try {
            try {
                env.Check(status);
            } catch (const COracleExc&) {
                caught = "as an Oracle error";
            }
        } catch (const exc::runtime_exc_t& e) {
            caught = e.what();
        }
        EXPECT_EQ(caught, text);
        EXPECT_EQ(env.lastError, std::wstring(text.begin(), text.end()));
    }

    auto statement = COracleHandle::Alloc(holder.GetSession()->env, oci::OCI_HTYPE_STMT);
    const auto prepare = [&] {
        return env.Ora().StmtPrepare(statement->As<oci::OCIStmt>(), env.ErrorHandle(), "");
    };
    EXPECT_EQ(env.Check(prepare(), 24373), 24373) << "an ignored code is returned";
    EXPECT_THROW(env.Check(prepare()), COracleExc);
    EXPECT_EQ(env.lastError, L"ORA-24373: invalid length specified for statement\n");

    // A server error that comes without a text still reads as one.
    oci::SOciFunctions textless;
    textless.ErrorGet = [](void*, oci::ub4, oci::OraText*, oci::sb4* code, oci::OraText*, oci::ub4,
                           oci::ub4) -> oci::sword {
        *code = 942;
        return oci::OCI_SUCCESS;
    };
    COracleEnv bare(std::make_shared<CWinOraInterface>(textless), nullptr, nullptr);
    try {
        bare.Check(oci::OCI_ERROR);
        ADD_FAILURE() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_EQ(e.code(), 942u);
        EXPECT_EQ(std::string(e.what()), "Oracle error has occurred. Undefined Oracle error has occurred");
    }
}
