#include "oracle/inventory/vss_functionality.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/strings/strings.h"
#include "support/capturing_receiver.h"
#include "support/service_sandbox.h"

namespace {

using specific::oracle::IsVssWriterServiceEnabled;
using test::test_service_t;

bool HasLineEndingWith(const std::vector<std::string>& lines, const std::string& text)
{
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.size() >= text.size() &&
               line.compare(line.size() - text.size(), text.size(), text) == 0;
    });
}

TEST(VssWriterService, StoppedAndPausedWritersDoNotRunButARunningOneDoes)
{
    const std::wstring sid = test::unique_sid(L"W");
    const std::string service = "OracleVssWriter" + util::wide_to_utf8(sid);
    test_service_t writer(L"OracleVssWriter" + sid);

    testing_support::log_capture_t stopped;
    EXPECT_FALSE(IsVssWriterServiceEnabled(sid));
    EXPECT_TRUE(HasLineEndingWith(stopped.texts(), "Found service: " + service + ", status: 1"));

    writer.start();
    testing_support::log_capture_t running;
    EXPECT_TRUE(IsVssWriterServiceEnabled(sid));
    EXPECT_TRUE(HasLineEndingWith(running.texts(), "Found service: " + service + ", status: 4"));

    writer.pause();
    testing_support::log_capture_t paused;
    EXPECT_FALSE(IsVssWriterServiceEnabled(sid));
    EXPECT_TRUE(HasLineEndingWith(paused.texts(), "Found service: " + service + ", status: 7"));
}

TEST(VssWriterService, WriterThatIsStillStartingCountsAsRunning)
{
    const std::wstring sid = test::unique_sid(L"P");
    test_service_t writer(L"OracleVssWriter" + sid, test_service_t::mode_t::start_pending);
    writer.start();

    testing_support::log_capture_t capture;
    EXPECT_TRUE(IsVssWriterServiceEnabled(sid));
    EXPECT_TRUE(HasLineEndingWith(capture.texts(), "OracleVssWriter" + util::wide_to_utf8(sid) +
                                                       ", status: 2"));
}

TEST(VssWriterService, MissingWriterCountsAsNotRunningAndIsReportedAsAWarning)
{
    const std::wstring sid = test::unique_sid(L"NONE");
    testing_support::log_capture_t capture;

    EXPECT_FALSE(IsVssWriterServiceEnabled(sid));

    const std::vector<std::string> lines = capture.texts();
    EXPECT_TRUE(HasLineEndingWith(lines,
                                  "WARN|Failed to check if VSS oracle writer service enabled, sid: " +
                                      util::wide_to_utf8(sid)));
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("Failed to open service 'OracleVssWriter") != std::string::npos;
    }));
}

} // namespace
