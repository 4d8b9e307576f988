#pragma once

#include <gtest/gtest.h>

#include "boundary/oracle_config.h"
#include "support/registry_sandbox.h"

namespace test {

// The configuration is read once per process: give it a connection timeout of
// one second before any test makes a session, so that a hung instance costs one
// second, not the minutes of the default. Register it with
// testing::AddGlobalTestEnvironment.
class short_timeout_environment_t : public testing::Environment {
public:
    void SetUp() override
    {
        registry_sandbox_t sandbox;
        sandbox.set_dword(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"OracleConnectionTimeout", 1);
        ASSERT_EQ(specific::oracle::COracleConfig::Instance().connectionTimeoutSec, 1);
    }
};

} // namespace test
