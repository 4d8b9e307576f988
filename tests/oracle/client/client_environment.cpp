#include "boundary/oracle_config.h"
#include "support/registry_sandbox.h"

#include <gtest/gtest.h>

namespace {

// The configuration is read once per process: give it a connection timeout
// of one second before any test makes a session.
class CShortTimeoutEnvironment : public testing::Environment {
public:
    void SetUp() override
    {
        test::registry_sandbox_t sandbox;
        sandbox.set_dword(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"OracleConnectionTimeout", 1);
        ASSERT_EQ(specific::oracle::COracleConfig::Instance().connectionTimeoutSec, 1);
    }
};

testing::Environment* const g_environment =
    testing::AddGlobalTestEnvironment(new CShortTimeoutEnvironment);

} // namespace
