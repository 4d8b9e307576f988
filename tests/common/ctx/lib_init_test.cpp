#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/ctx/lib_init.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "support/capturing_receiver.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace {

// The library itself passes no arguments; what it writes through the default
// log is checked line for line by the end-to-end run.
TEST(InitCommonLib, LogWordNamesTheLogWithoutRegardToCaseAndWithoutAPathFallsBackToTheDefaultLog)
{
    test::temp_folder_t temp;
    // Puts the receiver back, so that the log file is closed before its folder goes.
    test::log_capture_t restore;
    const std::wstring path = temp.file(L"chosen.log");
    EXPECT_EQ(util::wide_to_ansi(path),
              util::init_common_lib(L"ignored.log", {L"-verbose", L"-LOG", path}));
    EXPECT_EQ(util::wide_to_ansi(path), logging::get_log()->receiver()->path());

    test::registry_sandbox_t registry;
    registry.set_string(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"LogDirectory", temp.path());
    const std::string fallback = util::wide_to_ansi(temp.file(L"agent.log"));
    EXPECT_EQ(fallback, util::init_common_lib(L"agent.log", {L"-log"}));
    EXPECT_EQ(fallback, logging::get_log()->receiver()->path());
}

} // namespace
