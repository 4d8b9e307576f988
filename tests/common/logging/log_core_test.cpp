#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "support/capturing_receiver.h"
#include "support/process.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <ctime>
#include <regex>
#include <thread>

namespace {

using test::capturing_receiver_t;
using test::log_capture_t;

struct private_log_t {
    std::shared_ptr<logging::log_t> log = std::make_shared<logging::log_t>();
    std::shared_ptr<capturing_receiver_t> receiver =
        std::make_shared<capturing_receiver_t>("\r\n");
    logging::log_channel_t oralib{log, std::make_shared<logging::format::line_format_t>("oralib")};
    logging::log_channel_t empty{log, std::make_shared<logging::format::line_format_t>("")};

    private_log_t() { log->set_receiver(receiver); }
    // The blocks written, with the time column cut off.
    std::vector<std::string> blocks() const;
};

std::string thread_column()
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "<%6lu> ", static_cast<unsigned long>(GetCurrentThreadId()));
    return buffer;
}

// Cuts off the time column, which the end-to-end run of the library checks.
std::string without_time(const std::string& block)
{
    static const std::regex time_column(R"(\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] )");
    return std::regex_replace(block, time_column, "");
}

std::vector<std::string> private_log_t::blocks() const
{
    std::vector<std::string> result;
    for (const auto& block : receiver->blocks)
        result.push_back(without_time(block));
    return result;
}

TEST(LogLines, EveryLineOfAMessageIsFilteredAndFramedInOneWrite)
{
    struct upper_t : logging::text_filter_t {
        std::string apply(const std::string& line) override { return util::to_upper(line); }
    };
    private_log_t p;
    p.empty.info(0, "");
    p.empty.info(0, "end\n");
    p.empty.info(0, "a\n\nb");
    p.log->set_filter(std::make_shared<upper_t>());
    p.empty.info(0, "c\nd");
    const std::string t = thread_column();
    const std::vector<std::string> expected{t + "\r\n", t + "end\r\n",
                                            t + "a\r\n" + t + "\r\n" + t + "b\r\n",
                                            t + "C\r\n" + t + "D\r\n"};
    EXPECT_EQ(expected, p.blocks());
}

TEST(LogLines, ShortFormHasLevelWordAndNoTag)
{
    private_log_t p;
    p.log->set_short_format(1);
    p.oralib.warning("w\nx");
    p.oralib.info(2, "i");
    char column[16];
    std::snprintf(column, sizeof column, "<%2lu> ", static_cast<unsigned long>(GetCurrentThreadId() % 100));
    const std::string c = column;
    EXPECT_EQ((std::vector<std::string>{c + "Warning  w\r\n" + c + "Warning  x\r\n",
                                        c + "Info         i\r\n"}),
              p.blocks());
}

TEST(LogLines, NothingIsWrittenWithoutReceiverOrWhenStoppedAndReceiverFailureIsSwallowed)
{
    private_log_t p;
    p.log->set_receiver(nullptr);
    p.oralib.info("lost");
    p.log->set_receiver(p.receiver);
    p.log->set_stopped(true);
    p.oralib.error("lost too");
    EXPECT_TRUE(p.receiver->blocks.empty());

    struct failing_t : capturing_receiver_t {
        void write(const std::string&) override { throw exc::runtime_exc_t("disk full"); }
    };
    p.log->set_stopped(false);
    p.log->set_receiver(std::make_shared<failing_t>());
    EXPECT_NO_THROW(p.oralib.info("x"));
}

TEST(LogLines, SizeIsTestedAtEveryThousandthWrittenMessageAndAtEachOneAfterAFailedTest)
{
    struct sized_t : capturing_receiver_t {
        uint64_t size() override
        {
            ++size_calls;
            if (failing)
                throw exc::runtime_exc_t("size unknown");
            return 0;
        }
        int size_calls = 0;
        bool failing = false;
    };
    private_log_t p;
    const auto receiver = std::make_shared<sized_t>();
    p.log->set_check_size(true);
    p.log->set_receiver(nullptr);
    p.empty.info("lost, and not counted");
    p.log->set_receiver(receiver);
    for (int i = 0; i < 999; ++i)
        p.empty.info("x");
    EXPECT_EQ(0, receiver->size_calls);
    receiver->failing = true;
    p.empty.info("1000th");
    p.empty.info("1001st");
    EXPECT_EQ(2, receiver->size_calls);
    receiver->failing = false;
    p.empty.info("1002nd");
    for (int i = 0; i < 999; ++i)
        p.empty.info("x");
    EXPECT_EQ(3, receiver->size_calls);
    p.empty.info("x");
    EXPECT_EQ(4, receiver->size_calls);
    EXPECT_EQ(2002u, receiver->blocks.size());
}

TEST(LogLines, LongFormHasTimeThreadTagAndPerThreadIndentButWarningsAndErrorsHaveAMarkInstead)
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
    p.oralib.info(1, "given depth");
    p.oralib.warning("one\ntwo");
    p.oralib.error("Failed to open file [x].\nAn exception was thrown from thread [1234].");
    p.log->decrease_indent();
    p.log->decrease_indent();
    const std::string t = thread_column();
    EXPECT_EQ((std::vector<std::string>{
                  t + "oralib|     deep\r\n",
                  t + "oralib|   given depth\r\n",
                  t + "oralib| WARN|one\r\n" + t + "oralib| >>  |two\r\n",
                  t + "oralib| ERR |Failed to open file [x].\r\n" + t +
                      "oralib| >>  |An exception was thrown from thread [1234].\r\n"}),
              p.blocks());
}

TEST(Operations, ScopeLogsStartAndOkOnceOrFailedWhenLeftByAnException)
{
    log_capture_t capture;
    {
        logging::log_operation_t outer(logging::oralib(),
                                       "Backup oracle logs. Sid: %1", std::string("ORCL"));
        try {
            logging::log_operation_t inner(logging::oralib(), "inner");
            throw exc::runtime_exc_t("boom");
        } catch (const std::exception&) {
        }
        outer.ok();
        outer.ok();
    }
    const std::vector<std::string> expected{"oralib| Backup oracle logs. Sid: ORCL",
                                            "oralib|   inner", "oralib|   inner Failed.",
                                            "oralib| Backup oracle logs. Sid: ORCL ok."};
    EXPECT_EQ(expected, capture.texts());
}

// Errors with their thread line are checked where the exports report them.
TEST(ExceptionLogging, WarningHasNoThreadLineAndEveryChannelItsTag)
{
    log_capture_t capture;
    exc::runtime_exc_t own("Failed to open file [x].");
    logging::oralib().warning_exc("context", own);
    const std::vector<std::string> expected{
        "oralib| WARN|context",
        "oralib| >>  |Failed to open file [x].",
        "     ERR |x",
        "cli| LOG: Initializing log file ..."};
    logging::emergency().error("x");
    logging::cli().info(0, "LOG: Initializing log file ...");
    EXPECT_EQ(expected, capture.texts());
}

// Time-based behaviour is also tested under a zone other than the machine's: the
// override reaches the time column, and the machine's zone is back after it.
TEST(LogLines, TimeColumnIsTheLocalTimeOfTheZoneInForce)
{
    private_log_t p;
    const auto logged_hour = [&] {
        p.receiver->blocks.clear();
        p.oralib.info(0, "now");
        return std::stoi(p.receiver->blocks.at(0).substr(12, 2));
    };
    const auto crt_hour = [](bool utc) {
        const std::time_t now = std::time(nullptr);
        return (utc ? std::gmtime(&now) : std::localtime(&now))->tm_hour;
    };
    {
        test::time_zone_override_t zone("XYZ-3");
        EXPECT_EQ(logged_hour(), (crt_hour(true) + 3) % 24);
    }
    EXPECT_EQ(logged_hour(), crt_hour(false));
    EXPECT_NE(crt_hour(false), (crt_hour(true) + 3) % 24) << "the machine's zone must not be three hours east";
}

} // namespace
