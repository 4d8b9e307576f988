#include "common/exc/exc.h"
#include "common/strings/buf_reader.h"
#include "support/capturing_receiver.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <new>
#include <optional>
#include <system_error>
#include <thread>

namespace {

// What comes out of a catch block that nests `message` onto the exception
// `body` throws, caught as E; nothing when it is not an E.
template <typename E, typename F>
std::optional<E> nested(F body, bool as_trace, const exc::exc_trace_t& extra = {})
{
    try {
        try {
            body();
        } catch (const std::exception& e) {
            if (as_trace)
                exc::throw_nested_trace("outer", e, extra);
            exc::throw_nested("outer", e, extra);
        }
    } catch (const E& e) {
        return e;
    } catch (...) {
    }
    ADD_FAILURE() << "the expected type did not come out";
    return std::nullopt;
}

TEST(Exceptions, LinesComposeIntoTextWithTracePrefixAndPlainTextWithout)
{
    exc::runtime_exc_t e("first");
    e.add_trace_message("second");
    e.add_message("third\nstill third");
    EXPECT_STREQ("first\n--tr:second\nthird\nstill third", e.what());
    EXPECT_EQ("first\nsecond\nthird\nstill third", e.plain_text());
    ASSERT_EQ(3u, e.lines().size());
    EXPECT_TRUE(e.lines()[1].is_trace);
    EXPECT_STREQ("", exc::exc_base_t().what());
    exc::runtime_exc_t formatted("File [%1] of [%2] at %3.", "x", "y", "z");
    EXPECT_STREQ("File [x] of [y] at z.", formatted.what());
}

TEST(Exceptions, SystemErrorPutsSystemTextFirstAndCodeAsTrace)
{
    exc::win_sys_exc_t e("Failed to open file [%1] in readonly mode.", "C:\\data\\x.dbf",
                         ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(3u, e.lines().size());
    const std::string system_text = exc::get_error_text(ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(system_text.empty());
    EXPECT_NE('\n', system_text.back());
    EXPECT_EQ(system_text, e.lines()[0].text);
    EXPECT_EQ("Failed to open file [C:\\data\\x.dbf] in readonly mode.", e.lines()[1].text);
    EXPECT_EQ("Error code: 0x00000002", e.lines()[2].text);
    EXPECT_TRUE(e.lines()[2].is_trace);
    EXPECT_EQ(2u, e.code());
    EXPECT_EQ("Error code: 0x00000000", exc::win_sys_exc_t(0u).lines().at(1).text);
}

TEST(Exceptions, ComErrorWithoutDescriptionAndLockedFileTexts)
{
    SetErrorInfo(0, nullptr);
    exc::com_exc_t e(static_cast<long>(0x80004005L), "Cannot get the path");
    ASSERT_EQ(2u, e.lines().size());
    EXPECT_EQ(" Error code: 0x80004005", e.lines()[0].text);
    EXPECT_EQ("Cannot get the path", e.lines()[1].text);
    EXPECT_EQ(0x80004005u, e.code());
    exc::file_locked_exc_t locked("C:\\logs\\agent.log");
    EXPECT_STREQ("File [C:\\logs\\agent.log] is locked.", locked.what());
    EXPECT_EQ("C:\\logs\\agent.log", locked.path());
}

TEST(Nesting, OwnExceptionKeepsItsTypeForeignOneBecomesRuntimeWithItsTextAndCode)
{
    const auto own = nested<exc::win_sys_exc_t>([] { throw exc::win_sys_exc_t("inner", 5u); }, true);
    ASSERT_TRUE(own);
    EXPECT_EQ(5u, own->code());
    EXPECT_EQ("--tr:outer", own->text().substr(own->text().rfind('\n') + 1));

    const auto foreign = nested<exc::runtime_exc_t>([] { throw std::bad_alloc(); }, false);
    ASSERT_TRUE(foreign);
    ASSERT_EQ(2u, foreign->lines().size());
    EXPECT_EQ(std::string(std::bad_alloc().what()), foreign->lines()[0].text);
    EXPECT_EQ("outer", foreign->lines()[1].text);
    EXPECT_FALSE(foreign->lines()[1].is_trace);
    EXPECT_EQ(0u, foreign->code());

    const auto system = nested<exc::runtime_exc_t>(
        [] { throw std::system_error(std::error_code(32, std::system_category()), "sharing"); },
        true);
    ASSERT_TRUE(system);
    EXPECT_EQ(32u, system->code());
}

TEST(Nesting, TraceValuesMergeIntoExistingKeysInPlaceAndEarlierCopiesStayAsTheyWere)
{
    exc::exc_trace_t extra;
    extra.params = {{"b", "new"}, {"c", "3"}};
    extra.events = {{2, "event"}};
    std::shared_ptr<exc::exc_base_t> early;
    const auto merged = nested<exc::runtime_exc_t>(
        [&] {
            exc::runtime_exc_t e("root");
            e.trace().params = {{"a", "1"}, {"b", "old"}};
            early = exc::to_exc_ptr(e);
            throw e;
        },
        false, extra);
    ASSERT_TRUE(merged);
    const auto& params = merged->trace().params;
    ASSERT_EQ(3u, params.size());
    EXPECT_EQ(std::make_pair(std::string("b"), std::string("new")), params[1]);
    EXPECT_EQ("c", params[2].first);
    EXPECT_EQ(1u, merged->trace().events.size());
    EXPECT_EQ(2u, merged->lines().size());
    EXPECT_EQ(1u, early->lines().size());
    EXPECT_EQ("old", early->trace().params[1].second);
}

TEST(Copies, CloneAndRethrowKeepClassCodeLinesAndThreadOfOrigin)
{
    std::shared_ptr<exc::exc_base_t> captured;
    uint32_t worker_id = 0;
    std::thread worker([&] {
        worker_id = GetCurrentThreadId();
        captured = exc::to_exc_ptr(exc::win_sys_exc_t("on a worker", 87u));
    });
    worker.join();
    ASSERT_TRUE(captured);
    try {
        captured->rethrow();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(87u, e.code());
        EXPECT_EQ(worker_id, e.thread_id());
        EXPECT_NE(GetCurrentThreadId(), e.thread_id());
        EXPECT_EQ(captured->plain_text(), e.plain_text());
        return;
    }
    FAIL() << "rethrow lost the class";
}

TEST(Copies, LockedFileClonesAsItselfButRethrowsAsBaseAndForeignCopiesAsRuntime)
{
    auto copy = exc::file_locked_exc_t("x.log").clone();
    EXPECT_NE(nullptr, dynamic_cast<exc::file_locked_exc_t*>(copy.get()));
    try {
        copy->rethrow();
    } catch (const exc::file_locked_exc_t&) {
        ADD_FAILURE() << "a rethrown locked-file exception must be reduced to its base";
    } catch (const exc::exc_base_t& e) {
        EXPECT_STREQ("File [x.log] is locked.", e.what());
    }
    auto foreign = exc::to_exc_ptr(std::runtime_error("plain"));
    EXPECT_NE(nullptr, dynamic_cast<exc::runtime_exc_t*>(foreign.get()));
    EXPECT_STREQ("plain", foreign->what());
}

TEST(BufferForm, SaveAndLoadRoundTripLinesTraceAndCode)
{
    exc::runtime_exc_t original("root", 7u);
    original.add_trace_message("trace");
    original.trace().params = {{"k", "v"}};
    original.trace().events = {{3, "three"}};
    util::CBufWriter writer;
    original.save(writer);

    exc::runtime_exc_t loaded("placeholder");
    util::CBufReader reader(&writer.buffer(), 1u << 20);
    loaded.load(reader);
    EXPECT_STREQ(original.what(), loaded.what());
    EXPECT_EQ(7u, loaded.code());
    ASSERT_EQ(1u, loaded.trace().params.size());
    ASSERT_EQ(1u, loaded.trace().events.size());
    EXPECT_EQ("three", loaded.trace().events[0].info);
    EXPECT_EQ(writer.buffer().size(), reader.position());
}

TEST(BufferForm, UnknownEventIsDroppedWithWarningAndTruncatedBufferFails)
{
    util::CBufWriter writer;
    writer.write_int(1);
    writer.write_string("line");
    writer.write_bool(false);
    writer.write_int(0);
    writer.write_int(2);
    writer.write_int(9);
    writer.write_string("bad");
    writer.write_int(7);
    writer.write_string("good");

    testing_support::log_capture_t capture;
    exc::exc_base_t loaded;
    util::CBufReader reader(&writer.buffer(), 1024);
    loaded.load(reader);
    ASSERT_EQ(1u, loaded.trace().events.size());
    EXPECT_EQ(7u, loaded.trace().events[0].code);
    EXPECT_STREQ("line", loaded.what());
    EXPECT_EQ(std::vector<std::string>{"WARN|Unexpected trace event: [9]. Info: bad."},
              capture.texts());

    util::CBufWriter truncated;
    truncated.write_int(1);
    truncated.write_int(100);
    util::CBufReader short_reader(&truncated.buffer(), 1024);
    try {
        exc::exc_base_t().load(short_reader);
        ADD_FAILURE() << "a truncated buffer loaded";
    } catch (const exc::exc_base_t& e) {
        EXPECT_STREQ("Out of the buffer, buffer size '8', struct size '100', buffer pointer "
                     "'8'.\n--tr:Failed to extract multi-byte string from buffer .",
                     e.what());
    }
}

} // namespace
