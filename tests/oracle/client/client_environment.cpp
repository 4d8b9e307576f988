#include "support/short_timeout.h"

#include <gtest/gtest.h>

namespace {

testing::Environment* const g_environment =
    testing::AddGlobalTestEnvironment(new test::short_timeout_environment_t);

} // namespace
