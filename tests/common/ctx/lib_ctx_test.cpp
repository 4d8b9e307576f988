#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/ctx/lib_ctx.h"
#include "common/win/access.h"
#include "support/capturing_receiver.h"

using test::log_capture_t;

namespace {

class recording_permissions_t : public security::IFilesAccessPermissions {
public:
    void check_access(const std::wstring& path) override { paths.push_back(path); }
    std::vector<std::wstring> paths;
};

TEST(LibCtx, FileAccessIsAskedOfTheContextAccessObject)
{
    EXPECT_NO_THROW(win::check_access(std::wstring(L"\\\\server\\share\\x")));
    const auto ctx = util::get_lib_ctx();
    EXPECT_EQ(ctx, util::get_lib_ctx());
    const auto unrestricted = ctx->permissions;
    const auto recorder = std::make_shared<recording_permissions_t>();
    ctx->permissions = recorder;
    win::check_access(std::wstring(L"C:\\w\u00e9de"));
    win::check_access(std::string("C:\\n\xc3\xa4rrow"));
    ctx->permissions = unrestricted;
    EXPECT_EQ((std::vector<std::wstring>{L"C:\\w\u00e9de", L"C:\\n\u00e4rrow"}), recorder->paths);
}

TEST(LibCtx, TeardownClearsTheConsoleMultiplexorsWithANote)
{
    log_capture_t capture;
    std::weak_ptr<std::ostream> output;
    {
        util::CCommonLibCtx ctx;
        auto stream = std::make_shared<std::ostringstream>();
        output = stream;
        ctx.multiplexors->outputs.push_back(stream);
    }
    EXPECT_TRUE(output.expired());
    EXPECT_EQ(std::vector<std::string>{"cli| Clearing collection of cout multiplexors."},
              capture.texts());
    log_capture_t quiet;
    { util::CCommonLibCtx empty; }
    EXPECT_TRUE(quiet.receiver->blocks.empty());
}

} // namespace
