#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <vector>

#include "common/ctx/banner.h"
#include "common/ctx/module_info.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "support/capturing_receiver.h"
#include "version.h"

TEST(banner, names_host_version_system_and_process_in_an_indented_block)
{
    wchar_t host[MAX_PATH + 1] = {};
    GetModuleFileNameW(nullptr, host, MAX_PATH);
    testing_support::log_capture_t capture;
    util::write_banner();
    logging::log().info("after");
    const std::vector<std::string> expected = {
        "",
        "=============================================================================",
        "{",
        "  Path to the executable module: " + util::wide_to_utf8(host),
        "  Module version: " ORASNAP_VERSION_TEXT,
        "  Comments: " ORASNAP_COMMENTS,
        "  OS version: " + util::get_os_version_text(),
        "  Process Id: " + util::int_to_str(static_cast<uint32_t>(GetCurrentProcessId())),
        "}",
        "after",
    };
    EXPECT_EQ(expected, capture.texts());
}
