#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "common/ctx/lib_init.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "support/capturing_receiver.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace {

std::string content_of(const std::wstring& path)
{
    std::ifstream file(util::wide_to_ansi(path), std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

const char* const banner_rule =
    "> =============================================================================\r\n";

} // namespace

TEST(init_common_lib, log_word_names_the_log_without_regard_to_case_or_falls_back_to_the_default_log)
{
    test::temp_folder_t temp;
    // Puts the receiver back, so that the log file is closed before its folder goes.
    testing_support::log_capture_t restore;
    const std::wstring path = temp.file(L"chosen.log");
    EXPECT_EQ(util::wide_to_ansi(path),
              util::init_common_lib(L"ignored.log", {L"-verbose", L"-LOG", path}));
    EXPECT_EQ(util::wide_to_ansi(path), logging::get_log()->receiver()->path());
    logging::get_log()->set_receiver(nullptr);
    const std::string content = content_of(path);
    EXPECT_NE(std::string::npos, content.find(banner_rule)) << content;
    EXPECT_NE(std::string::npos, content.find("> {\r\n")) << content;

    test::registry_sandbox_t registry;
    registry.set_string(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"LogDirectory", temp.path());
    const std::wstring fallback = temp.file(L"agent.log");
    EXPECT_EQ(util::wide_to_ansi(fallback), util::init_common_lib(L"agent.log", {L"-log"}));
    logging::get_log()->set_receiver(nullptr);
    EXPECT_NE(std::string::npos, content_of(fallback).find(banner_rule));
}
