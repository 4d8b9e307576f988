#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/ctx/lib_ctx.h"
#include "common/win/access.h"
#include "support/capturing_receiver.h"

using testing_support::log_capture_t;

TEST(lib_ctx, access_check_allows_every_path)
{
    EXPECT_NO_THROW(win::check_access(std::wstring(L"\\\\server\\share\\x")));
    EXPECT_NO_THROW(win::check_access(std::string("C:\\x")));
}

TEST(lib_ctx, teardown_clears_the_console_multiplexors_with_a_note)
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
