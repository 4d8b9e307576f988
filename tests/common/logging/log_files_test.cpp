#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include <shlobj.h>
#include <zlib.h>

#include "common/logging/file_receivers.h"
#include "common/logging/log_files.h"
#include "common/logging/zip_writer.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "support/capturing_receiver.h"
#include "support/failure_lines.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace {

using test::failure_lines;
using testing::ElementsAre;
using testing::HasSubstr;

const wchar_t* const settings_key = L"SOFTWARE\\Brelm\\Brelm Safeguard";

void write_file(const std::string& path, const std::string& text)
{
    win::create_file(path)->write(static_cast<uint32_t>(text.size()), text.data());
}

// The text of a file; an archive's text is unpacked and put after "gz:" (gzread
// passes a plain file through as it is).
std::string read_file(const std::string& path)
{
    gzFile file = gzopen(path.c_str(), "rb");
    if (file == nullptr)
        return "<cannot open " + path + ">";
    std::string text;
    char block[4096];
    int got = 0;
    while ((got = gzread(file, block, sizeof(block))) > 0)
        text.append(block, static_cast<size_t>(got));
    if (gzdirect(file) == 0)
        text = "gz:" + text;
    gzclose(file);
    return text;
}

std::string common_folder()
{
    wchar_t folder[MAX_PATH] = {};
    SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
    return util::wide_to_ansi(folder) + "\\Brelm\\Backup\\";
}

TEST(LogNames, NumberedAndAgedNamesPutTheNumberBeforeTheSuffixKeepingItsCase)
{
    EXPECT_EQ("agent.1.log", logging::numbered_log_name("agent.log", 1));
    EXPECT_EQ("agent.1.LOG", logging::numbered_log_name("agent.LOG", 1));
    EXPECT_EQ("agent.12.log", logging::numbered_log_name("agent", 12));
    EXPECT_EQ("agent.txt.1.log", logging::numbered_log_name("agent.txt", 1));
    EXPECT_EQ("agent.1", logging::numbered_log_name("agent.", 1));
    EXPECT_EQ("C:\\my.dir\\agent.2.log", logging::numbered_log_name("C:\\my.dir\\agent", 2));
    EXPECT_EQ("agent.log.gz", logging::aged_file_name("agent.log.gz", ".log.gz", 0));
    EXPECT_EQ("agent.3.log.gz", logging::aged_file_name("agent.log.gz", ".log.gz", 3));
    EXPECT_EQ("AGENT.3.log.gz", logging::aged_file_name("AGENT.LOG.GZ", ".log.gz", 3));
    EXPECT_EQ("agent.2", logging::aged_file_name("agent", ".log.gz", 2));
    EXPECT_EQ("agent.2", logging::aged_file_name("agent.", ".log.gz", 2));
    EXPECT_EQ("agent.txt.2", logging::aged_file_name("agent.txt", ".log.gz", 2));
}

class LogFiles : public testing::Test {
protected:
    std::string file(const std::string& name) const { return temp.file_utf8(name); }

    test::registry_sandbox_t sandbox;
    test::temp_folder_t temp;
};

TEST_F(LogFiles, AgingShiftsEveryArchiveUpAndDropsTheOldest)
{
    const std::string base = file("agent.log.gz");
    for (uint32_t age = 0; age <= 3; ++age)
        write_file(logging::aged_file_name(base, ".log.gz", age), "age " + util::int_to_str(age));

    logging::age_file(base, ".log.gz", 3);
    EXPECT_FALSE(win::file_exists(base));
    EXPECT_EQ("age 0", read_file(file("agent.1.log.gz")));
    EXPECT_EQ("age 2", read_file(file("agent.3.log.gz")));
    EXPECT_FALSE(win::file_exists(file("agent.4.log.gz")));

    logging::age_file(file("agent.3.log.gz"), ".log.gz", 0);
    EXPECT_FALSE(win::file_exists(file("agent.3.log.gz")));
    EXPECT_FALSE(win::file_exists(file("agent.3.1.log.gz")));
}

TEST_F(LogFiles, SecondWriterIsLockedOutTheLogAppendsAcrossRunsAndALockedLogFallsBackToANumberedName)
{
    const std::string path = file("agent.log");
    {
        win::win_log_file_t first(path);
        first.write("one\r\n");
        EXPECT_EQ(path, first.path());
        try {
            win::win_log_file_t second(path);
            ADD_FAILURE() << "a second writer opened the log";
        } catch (const exc::file_locked_exc_t& e) {
            EXPECT_EQ(path, e.path());
        }
        EXPECT_EQ("one\r\n", read_file(path));
    }
    win::win_log_file_t again(path);
    again.write("two\r\n");
    EXPECT_EQ(10u, again.size());
    EXPECT_EQ("one\r\ntwo\r\n", read_file(path));

    const std::string upper = file("other.LOG");
    std::string used;
    auto first = logging::open_unlocked_log(upper, used);
    EXPECT_EQ(upper, used);
    auto second = logging::open_unlocked_log(upper, used);
    EXPECT_EQ(file("other.1.LOG"), used);
    EXPECT_EQ(file("other.1.LOG"), second->path());
}

TEST_F(LogFiles, FileOfExactlyTheLimitIsRotatedIntoAnArchive)
{
    const std::string path = file("agent.log");
    write_file(file("agent.log.gz"), "older archive");
    auto receiver = std::make_shared<win::win_log_file_t>(path);
    const std::string contents(1000, 'x');
    receiver->write(contents);
    logging::log_limits_t limits;
    limits.max_size = 1001;
    limits.max_ages = 10;

    logging::check_log_size(receiver, limits);
    EXPECT_EQ(1000u, receiver->size());
    EXPECT_FALSE(win::file_exists(file("agent.1.log.gz")));

    limits.max_size = 1000;
    logging::check_log_size(receiver, limits);
    EXPECT_EQ(0u, receiver->size());
    EXPECT_EQ("gz:" + contents, read_file(file("agent.log.gz")));
    EXPECT_EQ("older archive", read_file(file("agent.1.log.gz")));

    receiver->write("next\r\n");
    EXPECT_EQ("next\r\n", read_file(path));

    limits.max_size = 0;
    receiver->write(contents);
    logging::check_log_size(receiver, limits);
    EXPECT_EQ(1006u, receiver->size());
}

TEST_F(LogFiles, ArchiveHeldOpenStopsTheAgingAndEveryArchiveStaysUntilItIsFree)
{
    auto receiver = std::make_shared<win::win_log_file_t>(file("agent.log"));
    receiver->write("live");
    for (uint32_t age = 0; age <= 2; ++age)
        write_file(logging::aged_file_name(file("agent.log.gz"), ".log.gz", age),
                   "age " + util::int_to_str(age));
    logging::log_limits_t limits;
    limits.max_size = 1;
    limits.max_ages = 2;
    {
        const win::unique_handle_t reader(CreateFileW(temp.file(L"agent.log.gz").c_str(),
                                                      GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                      OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(reader.valid());
        for (int attempt = 0; attempt < 3; ++attempt)
            EXPECT_THROW(logging::check_log_size(receiver, limits), std::exception);
        for (uint32_t age = 0; age <= 2; ++age)
            EXPECT_EQ("age " + util::int_to_str(age),
                      read_file(logging::aged_file_name(file("agent.log.gz"), ".log.gz", age)));
        EXPECT_EQ(4u, receiver->size());
    }
    logging::check_log_size(receiver, limits);
    EXPECT_EQ("gz:live", read_file(file("agent.log.gz")));
    EXPECT_EQ("age 0", read_file(file("agent.1.log.gz")));
    EXPECT_EQ("age 1", read_file(file("agent.2.log.gz")));
}

// A receiver over the limit whose size is asked with a line of its own, as a
// log folder on a share does ("No impersonation context found ...").
class chatty_receiver_t : public test::capturing_receiver_t {
public:
    explicit chatty_receiver_t(std::string path) : path_(std::move(path)) {}
    const std::string& path() const override { return path_; }
    uint64_t size() override
    {
        ++size_tests;
        logging::log().info("Measuring the log.");
        return uint64_t{1} << 40;
    }
    void compress_to(const std::shared_ptr<util::zip_writer_t>&) override { ++compressions; }

    int size_tests = 0;
    int compressions = 0;

private:
    std::string path_;
};

TEST_F(LogFiles, LineLoggedInsideTheSizeTestIsWrittenAndStartsNoSecondTest)
{
    test::log_capture_t restore;
    const auto receiver = std::make_shared<chatty_receiver_t>(file("agent.log"));
    const auto log = logging::get_log();
    log->set_receiver(receiver);
    log->set_check_size(true);
    for (int message = 0; message < 1000; ++message)
        logging::log().info("message");
    log->set_check_size(false);
    EXPECT_EQ(1, receiver->size_tests);
    EXPECT_EQ(1, receiver->compressions);
    EXPECT_EQ(1001u, receiver->blocks.size());
    EXPECT_THAT(receiver->all(), HasSubstr("> Measuring the log.\n"));
}

TEST_F(LogFiles, FailedRotationNamesTheLogAndKeepsTheLiveFileAndAnUnopenableArchiveNamesItsPath)
{
    auto receiver = std::make_shared<win::win_log_file_t>(file("agent.log"));
    receiver->write("abc");
    win::create_folders(file("agent.log.gz\\not-empty\\f"));
    logging::log_limits_t limits;
    limits.max_size = 1;
    limits.max_ages = 0;

    const auto lines = failure_lines([&] { logging::check_log_size(receiver, limits); });
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ("Unable to validate log size limit. Log path: [" + file("agent.log") + "].",
              lines.back());
    EXPECT_EQ(3u, receiver->size());

    const std::string archive = file("missing\\agent.log.gz");
    const auto archive_lines = failure_lines([&] { util::zip_writer_t writer(archive); });
    ASSERT_FALSE(archive_lines.empty());
    EXPECT_EQ("Failed to open GZ archive [" + archive + "].", archive_lines.back());
}

TEST_F(LogFiles, LimitsTakeTheirDefaultsUnlessBothValuesReadWell)
{
    const auto limits = [] {
        const auto read = logging::read_log_limits();
        return std::make_pair(read.max_size, read.max_ages);
    };
    const auto defaults = std::make_pair(uint64_t{15728640}, uint32_t{10});
    EXPECT_EQ(defaults, limits());
    sandbox.set_dword(settings_key, L"AgentMaxLogSize", 4096);
    EXPECT_EQ(defaults, limits());
    sandbox.set_dword(settings_key, L"AgentMaxLogCount", 3);
    EXPECT_EQ(std::make_pair(uint64_t{4096}, uint32_t{3}), limits());

    sandbox.set_qword(settings_key, L"AgentMaxLogSize", 0x200000000ull);
    sandbox.set_dword(settings_key, L"AgentMaxLogCount", 5000);
    EXPECT_EQ(std::make_pair(uint64_t{0x200000000ull}, uint32_t{1000}), limits());

    sandbox.set_qword(settings_key, L"AgentMaxLogCount", 5);
    EXPECT_EQ(defaults, limits());
    sandbox.set_dword(settings_key, L"AgentMaxLogCount", 5);
    sandbox.set_string(settings_key, L"AgentMaxLogSize", L"4096");
    EXPECT_EQ(defaults, limits());
}

TEST_F(LogFiles, DefaultPathUsesLogDirectoryOrTheCommonFolderAndRedirectAppliesOnlyBelowIt)
{
    EXPECT_EQ(util::ansi_to_wide(common_folder()) + L"agent.log",
              logging::default_log_path(L"agent.log"));
    sandbox.set_string(settings_key, L"LogDirectory", L"D:\\logs\\");
    EXPECT_EQ(L"D:\\logs\\agent.log", logging::default_log_path(L"agent.log"));
    sandbox.set_string(settings_key, L"LogDirectory", L"");
    EXPECT_EQ(L"agent.log", logging::default_log_path(L"agent.log"));
    sandbox.set_dword(settings_key, L"LogDirectory", 1);
    EXPECT_EQ(util::ansi_to_wide(common_folder()) + L"agent.log",
              logging::default_log_path(L"agent.log"));

    std::string redirected;
    EXPECT_FALSE(logging::redirect_log_path("D:\\logs\\agent.log", redirected));
    sandbox.set_string(settings_key, L"LogDirectory", L"D:\\Logs\\");
    EXPECT_TRUE(logging::redirect_log_path("d:/logs//sub\\agent.log", redirected));
    EXPECT_EQ(common_folder() + "agent.log", redirected);
    EXPECT_TRUE(logging::redirect_log_path("D:\\LOGS\\agent.log", redirected));
    EXPECT_FALSE(logging::redirect_log_path("D:\\logsX\\agent.log", redirected));
    EXPECT_FALSE(logging::redirect_log_path("D:\\agent.log", redirected));
}

TEST_F(LogFiles, SelectTakesTheFirstPathWhoseFolderCanBeMadeOrMovesOutOfLogDirectory)
{
    EXPECT_THAT(failure_lines([] { logging::select_log_path({}); }),
                ElementsAre("Log paths list is empty."));

    write_file(file("blocker"), "a file where a folder should be");
    const std::string blocked = file("blocker\\logs\\agent.log");
    const std::string good = file("logs\\agent.log");
    EXPECT_EQ(good, logging::select_log_path({blocked, good}));
    EXPECT_TRUE(win::file_exists(file("logs")));

    EXPECT_THROW(logging::select_log_path({blocked}), std::exception);

    sandbox.set_string(settings_key, L"LogDirectory", util::utf8_to_wide(file("blocker")));
    EXPECT_EQ(common_folder() + "agent.log", logging::select_log_path({blocked}));
}

class LogSetup : public LogFiles {
protected:
    // Puts the receiver back whatever the test started.
    test::log_capture_t capture;
};

// A log that starts writes its opening note into its file: checked end to end.
TEST_F(LogSetup, LogThatCannotStartLeavesTheReceiverAndReportsWhy)
{
    write_file(file("blocker"), "a file where a folder should be");
    const std::string blocked = file("blocker\\logs\\agent.log");
    logging::setup_log(blocked, false, true);
    EXPECT_FALSE(logging::log_quiet());
    EXPECT_EQ(capture.receiver, logging::get_log()->receiver());
    const auto texts = capture.texts();
    ASSERT_GE(texts.size(), 3u);
    EXPECT_EQ("cli| LOG: Initializing log file ...", texts[0]);
    EXPECT_EQ("cli| Error: Failed to initialize log [" + blocked + "].", texts[1]);
    EXPECT_THAT(texts[2], HasSubstr("cli| Error: "));
}

TEST_F(LogSetup, EmptyPathLogsToStandardOutputBetweenSlashLines)
{
    std::ostringstream captured;
    std::streambuf* const original = std::cout.rdbuf(captured.rdbuf());
    {
        std::vector<std::string> messages;
        auto receiver = logging::init_stdout_log(messages);
        ASSERT_TRUE(receiver);
        receiver->write("a line\n");
        EXPECT_EQ(0u, receiver->size());
        logging::log_limits_t limits;
        limits.max_size = 1;
        logging::check_log_size(receiver, limits);
        EXPECT_TRUE(messages.empty());
    }
    std::cout.rdbuf(original);
    const std::string slashes(74, '/');
    EXPECT_EQ(slashes + "\na line\n" + slashes + "\n", captured.str());
}

} // namespace
