#include "boundary/error_string.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/exc/exc.h"
#include "support/capturing_receiver.h"

using specific::oracle::CopyToHeap;
using specific::oracle::MakeErrorString;

namespace {

// Takes ownership of a heap text the way the agent does: read, then free.
std::wstring take(wchar_t* text)
{
    std::wstring copy = text != nullptr ? std::wstring(text) : std::wstring(L"<null>");
    std::free(text);
    return copy;
}

} // namespace

TEST(ErrorString, CallerGetsWhatAndTheLogGetsTheLiteralWithTheThrowingThread)
{
    test::log_capture_t capture;
    exc::runtime_exc_t error("Root cause.");
    error.add_trace_message("Oracle manager failed to enum logs");
    EXPECT_EQ(take(MakeErrorString("Failed to enum oracle logs.", error)),
              L"Root cause.\n--tr:Oracle manager failed to enum logs");
    EXPECT_EQ(take(MakeErrorString("Failed to do oracle restore", std::runtime_error("bad"))), L"bad");
    EXPECT_EQ(capture.texts(),
              (std::vector<std::string>{
                  "oralib| ERR |Failed to enum oracle logs.",
                  "oralib| >>  |Root cause.",
                  "oralib| >>  |--tr:Oracle manager failed to enum logs",
                  "oralib| >>  |An exception was thrown from thread [" +
                      std::to_string(error.thread_id()) + "].",
                  "oralib| ERR |Failed to do oracle restore",
                  "oralib| >>  |bad",
                  "oralib| >>  |An exception was thrown from thread [n/a].",
              }));
    EXPECT_EQ(take(CopyToHeap(std::wstring(L"ab\0cd", 5))), L"ab") << "the copy ends at the first zero";
}
