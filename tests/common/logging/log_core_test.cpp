#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "support/capturing_receiver.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <regex>
#include <thread>

namespace {

using testing_support::capturing_receiver_t;
using testing_support::log_capture_t;

struct private_log_t {
    std::shared_ptr<logging::log_t> log = std::make_shared<logging::log_t>();
    std::shared_ptr<capturing_receiver_t> receiver =
        std::make_shared<capturing_receiver_t>("\r\n");
    logging::log_channel_t oralib{log, std::make_shared<logging::format::line_format_t>("oralib")};
    logging::log_channel_t empty{log, std::make_shared<logging::format::line_format_t>("")};

    private_log_t() { log->set_receiver(receiver); }
};

std::string thread_column()
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "<%6lu> ", static_cast<unsigned long>(GetCurrentThreadId()));
    return buffer;
}

// Cuts off the time column, which is checked on its own.
std::string without_time(const std::string& block)
{
    static const std::regex time_column(R"(\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] )");
    return std::regex_replace(block, time_column, "");
}

TEST(LogLines, LongFormHasTimeThreadTagMarkIndentAndLineEnd)
{
    private_log_t p;
    p.oralib.info(1, "Checking instance ORCL");
    ASSERT_EQ(1u, p.receiver->blocks.size());
    const std::string& block = p.receiver->blocks[0];
    EXPECT_TRUE(std::regex_match(block, std::regex(R"(\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] <[ \d]{6}> .*\r\n)")))
        << block;
    EXPECT_EQ(thread_column() + "oralib|   Checking instance ORCL\r\n", without_time(block));
}

TEST(LogLines, WarningsAndErrorsMarkFirstLineAndContinueWithArrows)
{
    private_log_t p;
    p.log->increase_indent();
    p.oralib.warning("one\ntwo\nthree");
    p.oralib.error("Failed to open file [x].\nAn exception was thrown from thread [1234].");
    p.log->decrease_indent();
    const std::string t = thread_column();
    EXPECT_EQ(t + "oralib| WARN|one\r\n" + t + "oralib| >>  |two\r\n" + t + "oralib| >>  |three\r\n",
              without_time(p.receiver->blocks.at(0)));
    EXPECT_EQ(t + "oralib| ERR |Failed to open file [x].\r\n" + t +
                  "oralib| >>  |An exception was thrown from thread [1234].\r\n",
              without_time(p.receiver->blocks.at(1)));
}

TEST(LogLines, MultiLineInformationHasNoMarkAndOneWritePerMessage)
{
    private_log_t p;
    p.empty.info(0, "a\nb");
    ASSERT_EQ(1u, p.receiver->blocks.size());
    const std::string t = thread_column();
    EXPECT_EQ(t + "a\r\n" + t + "b\r\n", without_time(p.receiver->blocks[0]));
}

TEST(LogLines, LineBreaksAtTheEndAndInTheMiddle)
{
    private_log_t p;
    p.empty.info(0, "");
    p.empty.info(0, "end\n");
    p.empty.info(0, "a\n\nb");
    const std::string t = thread_column();
    EXPECT_EQ(t + "\r\n", without_time(p.receiver->blocks.at(0)));
    EXPECT_EQ(t + "end\r\n", without_time(p.receiver->blocks.at(1)));
    EXPECT_EQ(t + "a\r\n" + t + "\r\n" + t + "b\r\n", without_time(p.receiver->blocks.at(2)));
}

TEST(LogLines, ShortFormHasLevelWordAndNoTag)
{
    private_log_t p;
    p.log->set_short_format(1);
    p.oralib.warning("w\nx");
    p.oralib.info(2, "i");
    char column[16];
    std::snprintf(column, sizeof column, "<%2lu> ", static_cast<unsigned long>(GetCurrentThreadId() % 100));
    EXPECT_EQ(std::string(column) + "Warning  w\r\n" + column + "Warning  x\r\n",
              without_time(p.receiver->blocks.at(0)));
    EXPECT_EQ(std::string(column) + "Info         i\r\n", without_time(p.receiver->blocks.at(1)));
}

TEST(LogLines, NothingIsWrittenWithoutReceiverOrWhenStopped)
{
    private_log_t p;
    p.log->set_receiver(nullptr);
    p.oralib.info("lost");
    p.log->set_receiver(p.receiver);
    p.log->set_stopped(true);
    p.oralib.error("lost too");
    EXPECT_TRUE(p.receiver->blocks.empty());
}

TEST(LogLines, FilterMapsEveryLine)
{
    struct upper_t : logging::text_filter_t {
        std::string apply(const std::string& line) override { return util::to_upper(line); }
    };
    private_log_t p;
    p.log->set_filter(std::make_shared<upper_t>());
    p.empty.info(0, "a\nb");
    const std::string t = thread_column();
    EXPECT_EQ(t + "A\r\n" + t + "B\r\n", without_time(p.receiver->blocks.at(0)));
}

TEST(LogLines, ReceiverFailureIsSwallowed)
{
    struct failing_t : capturing_receiver_t {
        void write(const std::string&) override { throw exc::runtime_exc_t("disk full"); }
    };
    private_log_t p;
    p.log->set_receiver(std::make_shared<failing_t>());
    EXPECT_NO_THROW(p.oralib.info("x"));
}

TEST(Indent, PerThreadAndNeverBelowZero)
{
    private_log_t p;
    p.log->decrease_indent();
    EXPECT_EQ(0, p.log->indent());
    p.log->increase_indent();
    p.log->increase_indent();
    int other = -1;
    std::thread([&] { other = p.log->indent(); }).join();
    EXPECT_EQ(0, other);
    p.oralib.info("deep");
    p.oralib.warning("left");
    p.log->decrease_indent();
    p.log->decrease_indent();
    const std::string t = thread_column();
    EXPECT_EQ(t + "oralib|     deep\r\n", without_time(p.receiver->blocks.at(0)));
    EXPECT_EQ(t + "oralib| WARN|left\r\n", without_time(p.receiver->blocks.at(1)));
}

TEST(Operations, SuccessfulScopeLogsStartAndOkOnce)
{
    log_capture_t capture;
    {
        logging::log_operation_t op("Backup oracle logs. Sid: %1", std::string("ORCL"));
        logging::oralib().info("inside");
        op.ok();
    }
    const std::vector<std::string> expected{"oralib| Backup oracle logs. Sid: ORCL",
                                            "oralib|   inside",
                                            "oralib| Backup oracle logs. Sid: ORCL ok."};
    EXPECT_EQ(expected, capture.texts());
}

TEST(Operations, ExceptionLeavingScopeLogsFailedAtEnclosingIndent)
{
    log_capture_t capture;
    {
        logging::log_operation_t outer("outer");
        try {
            logging::log_operation_t inner("inner");
            throw exc::runtime_exc_t("boom");
        } catch (const std::exception&) {
        }
        outer.ok();
    }
    const std::vector<std::string> expected{"oralib| outer", "oralib|   inner",
                                            "oralib|   inner Failed.", "oralib| outer ok."};
    EXPECT_EQ(expected, capture.texts());
}

TEST(ExceptionLogging, ErrorCarriesTheThreadLine)
{
    log_capture_t capture;
    exc::runtime_exc_t own("Failed to open file [x].");
    logging::oralib().error_exc("Failed to test oracle.", own);
    logging::log().error_exc(std::runtime_error("foreign"));
    logging::oralib().warning_exc("context", own);
    const std::string id = std::to_string(GetCurrentThreadId());
    const std::vector<std::string> expected{
        "oralib| ERR |Failed to test oracle.",
        "oralib| >>  |Failed to open file [x].",
        "oralib| >>  |An exception was thrown from thread [" + id + "].",
        "ERR |foreign",
        ">>  |An exception was thrown from thread [n/a].",
        "oralib| WARN|context",
        "oralib| >>  |Failed to open file [x]."};
    EXPECT_EQ(expected, capture.texts());
}

TEST(Channels, EmergencyTagIsFiveBlanks)
{
    log_capture_t capture;
    logging::emergency().error("x");
    logging::cli().info(0, "LOG: Initializing log file ...");
    const std::vector<std::string> expected{"     ERR |x", "cli| LOG: Initializing log file ..."};
    EXPECT_EQ(expected, capture.texts());
}

} // namespace
