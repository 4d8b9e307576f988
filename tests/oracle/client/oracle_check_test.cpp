#include "fake_client.h"

#include "oracle/client/oracle_env.h"
#include "oracle/client/oracle_exc.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace specific::oracle;
using oracle_client_test::SFakeClient;

namespace {

size_t count(const std::vector<std::string>& calls, const std::string& call)
{
    return static_cast<size_t>(std::count(calls.begin(), calls.end(), call));
}

} // namespace

TEST(OracleCheck, SuccessWithInfoAndNoDataPassAsZero)
{
    SFakeClient fake;
    auto env = COracleEnv::Create(fake.Ora());
    EXPECT_EQ(env->Check(oci::OCI_SUCCESS), 0);
    EXPECT_EQ(env->Check(oci::OCI_SUCCESS_WITH_INFO), 0);
    EXPECT_EQ(env->Check(oci::OCI_NO_DATA), 0);
    EXPECT_EQ(count(fake.calls, "errorget"), 0u);
}

TEST(OracleCheck, IgnoredServerCodeIsReturnedInsteadOfRaised)
{
    SFakeClient fake;
    fake.errorCode = 1034;
    fake.errorText = "ORA-01034: ORACLE not available\n";
    auto env = COracleEnv::Create(fake.Ora());
    EXPECT_EQ(env->Check(oci::OCI_ERROR, 1034), 1034);
    EXPECT_TRUE(env->lastError.empty());
}

TEST(OracleCheck, ServerErrorRaisesOracleExcWithCodeAndTextAsOciWroteIt)
{
    SFakeClient fake;
    fake.errorCode = 942;
    fake.errorText = "ORA-00942: table or view does not exist\n";
    auto env = COracleEnv::Create(fake.Ora());
    try {
        env->Check(oci::OCI_ERROR);
        FAIL() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_EQ(e.code(), 942u);
        EXPECT_EQ(std::string(e.what()),
                  "Oracle error has occurred. ORA-00942: table or view does not exist\n");
    }
    EXPECT_EQ(env->lastError, L"ORA-00942: table or view does not exist\n");
}

TEST(OracleCheck, ErrorWithoutTextIsUndefined)
{
    SFakeClient fake;
    fake.errorCode = 600;
    auto env = COracleEnv::Create(fake.Ora());
    try {
        env->Check(oci::OCI_ERROR);
        FAIL() << "no exception";
    } catch (const COracleExc& e) {
        EXPECT_EQ(e.code(), 600u);
        EXPECT_EQ(std::string(e.what()),
                  "Oracle error has occurred. Undefined Oracle error has occurred");
    }
}

TEST(OracleCheck, ErrorWithoutCodePassesWhenNothingIsIgnored)
{
    SFakeClient fake;
    fake.errorCode = 0;
    fake.errorText = "something";
    auto env = COracleEnv::Create(fake.Ora());
    EXPECT_EQ(env->Check(oci::OCI_ERROR), 0);
}

TEST(OracleCheck, OtherResultsAreUnexpectedAndNoOracleExc)
{
    SFakeClient fake;
    auto env = COracleEnv::Create(fake.Ora());
    const std::pair<oci::sword, std::string> cases[] = {
        {oci::OCI_INVALID_HANDLE, "Unexpected Oracle error has occurred. Code: 4294967294"},
        {oci::OCI_NEED_DATA, "Unexpected Oracle error has occurred. Code: 99"},
    };
    for (const auto& [status, text] : cases) {
        bool caughtAsOracle = false;
        bool caughtAsRuntime = false;
        try {
            try {
                env->Check(status);
            } catch (const COracleExc&) {
                caughtAsOracle = true;
            }
        } catch (const exc::runtime_exc_t& e) {
            caughtAsRuntime = true;
            EXPECT_EQ(std::string(e.what()), text);
        }
        EXPECT_FALSE(caughtAsOracle) << status;
        EXPECT_TRUE(caughtAsRuntime) << status;
        EXPECT_EQ(env->lastError, std::wstring(text.begin(), text.end()));
    }
}

TEST(OracleExceptions, TimeoutsAreOracleErrorsButSessionCreationIsNot)
{
    auto timeoutIsOracle = [](const exc::exc_base_t& e) {
        try {
            e.rethrow();
        } catch (const COracleExc&) {
            return true;
        } catch (const std::exception&) {
        }
        return false;
    };
    EXPECT_TRUE(timeoutIsOracle(COracleInitTimeoutExc("a")));
    EXPECT_TRUE(timeoutIsOracle(COracleStatusQueryTimeoutExc("b")));
    EXPECT_FALSE(timeoutIsOracle(COracleSessionCreateExc("c")));
}

TEST(OracleExceptions, CloneKeepsTypeCodeAndAddedLines)
{
    try {
        try {
            throw COracleStatusQueryTimeoutExc("Failed to wait checking if oracle instance is opened");
        } catch (const std::exception& e) {
            exc::throw_nested_trace("outer step", e);
        }
    } catch (const std::exception& e) {
        const std::shared_ptr<exc::exc_base_t> copy = exc::to_exc_ptr(e);
        try {
            copy->rethrow();
        } catch (const COracleStatusQueryTimeoutExc& again) {
            EXPECT_EQ(std::string(again.what()), std::string(e.what()));
            return;
        }
    }
    FAIL() << "type lost";
}

TEST(OracleHandles, EnvironmentMakesErrorHandleAndFreesBothInOrder)
{
    SFakeClient fake;
    {
        auto env = COracleEnv::Create(fake.Ora());
        EXPECT_EQ(fake.calls, (std::vector<std::string>{"alloc 1", "alloc 2"}));
    }
    EXPECT_EQ(fake.calls,
              (std::vector<std::string>{"alloc 1", "alloc 2", "free 2", "free 1"}));
}

TEST(OracleHandles, LeakedHandlesAreNotFreedButTheErrorHandleIs)
{
    SFakeClient fake;
    {
        auto env = COracleEnv::Create(fake.Ora());
        auto statement = COracleHandle::Alloc(env, oci::OCI_HTYPE_STMT);
        auto server = COracleHandle::Alloc(env, oci::OCI_HTYPE_SERVER);
        statement->leakHandle = true;
        env->leakHandle = true;
        fake.calls.clear();
    }
    EXPECT_EQ(fake.calls, (std::vector<std::string>{"free 8", "free 2"}));
    EXPECT_EQ(fake.liveHandles, 2u);
}

TEST(OracleSessionTeardown, AbandonedSessionMakesNoCallButTheErrorHandleFree)
{
    SFakeClient fake;
    {
        auto session = fake.Session();
        session->abandoned = true;
        fake.calls.clear();
    }
    EXPECT_EQ(fake.calls, (std::vector<std::string>{"free 2"}));
}

TEST(OracleSessionTeardown, NormalSessionEndsDetachesAndFreesInOrder)
{
    SFakeClient fake;
    {
        auto session = fake.Session();
        fake.calls.clear();
    }
    EXPECT_EQ(fake.calls, (std::vector<std::string>{"end", "detach", "free 9", "free 8", "free 3",
                                                    "free 2", "free 1"}));
    EXPECT_EQ(fake.liveHandles, 0u);
}
