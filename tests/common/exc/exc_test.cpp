#include "common/exc/exc.h"
#include "common/strings/buf_reader.h"
#include "support/capturing_receiver.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <new>
#include <system_error>
#include <thread>

namespace {

template <typename F>
std::shared_ptr<exc::exc_base_t> catch_exc(F&& body)
{
    try {
        body();
    } catch (const std::exception& e) {
        return exc::to_exc_ptr(e);
    }
    return nullptr;
}

TEST(Exceptions, ComposeTextWithTracePrefixAndPlainTextWithout)
{
    exc::runtime_exc_t e("first");
    e.add_trace_message("second");
    e.add_message("third");
    EXPECT_STREQ("first\n--tr:second\nthird", e.what());
    EXPECT_EQ("first\nsecond\nthird", e.plain_text());
    ASSERT_EQ(3u, e.lines().size());
    EXPECT_TRUE(e.lines()[1].is_trace);
}

TEST(Exceptions, EmptyExceptionHasEmptyTextNotNull)
{
    exc::exc_base_t e;
    ASSERT_NE(nullptr, e.what());
    EXPECT_STREQ("", e.what());
    EXPECT_EQ("", e.plain_text());
}

TEST(Exceptions, MessageWithLineBreakStaysOneLine)
{
    exc::runtime_exc_t e("a\nb");
    EXPECT_EQ(1u, e.lines().size());
}

TEST(Exceptions, FormatConstructorsRunTheMessageFormatter)
{
    exc::runtime_exc_t e("File [%1] of [%2] at %3.", "x", "y", "z");
    EXPECT_STREQ("File [x] of [y] at z.", e.what());
    EXPECT_EQ(0u, e.code());
    exc::runtime_exc_t coded("boom", 42u);
    EXPECT_EQ(42u, coded.code());
}

TEST(Exceptions, SystemErrorPutsSystemTextFirstAndCodeAsTrace)
{
    exc::win_sys_exc_t e("Failed to open file [%1] in readonly mode.", "C:\\data\\x.dbf",
                         ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(3u, e.lines().size());
    EXPECT_EQ(exc::get_error_text(ERROR_FILE_NOT_FOUND), e.lines()[0].text);
    EXPECT_FALSE(e.lines()[0].text.empty());
    EXPECT_EQ("Failed to open file [C:\\data\\x.dbf] in readonly mode.", e.lines()[1].text);
    EXPECT_EQ("Error code: 0x00000002", e.lines()[2].text);
    EXPECT_TRUE(e.lines()[2].is_trace);
    EXPECT_EQ(2u, e.code());
}

TEST(Exceptions, CodeZeroIsAnOrdinarySystemError)
{
    exc::win_sys_exc_t e(0u);
    ASSERT_EQ(2u, e.lines().size());
    EXPECT_EQ("Error code: 0x00000000", e.lines()[1].text);
}

TEST(Exceptions, SystemTextHasNoClosingLineBreak)
{
    const std::string text = exc::get_error_text(ERROR_ACCESS_DENIED);
    EXPECT_FALSE(text.empty());
    EXPECT_NE("\r\n", text.size() >= 2 ? text.substr(text.size() - 2) : std::string());
}

TEST(Exceptions, ComErrorWithoutDescriptionStartsWithBlankAndCode)
{
    SetErrorInfo(0, nullptr);
    exc::com_exc_t e(static_cast<long>(0x80004005L), "Cannot get the path");
    ASSERT_EQ(2u, e.lines().size());
    EXPECT_EQ(" Error code: 0x80004005", e.lines()[0].text);
    EXPECT_EQ("Cannot get the path", e.lines()[1].text);
    EXPECT_EQ(0x80004005u, e.code());
}

TEST(Exceptions, FileLockedNamesThePath)
{
    exc::file_locked_exc_t e("C:\\logs\\agent.log");
    EXPECT_STREQ("File [C:\\logs\\agent.log] is locked.", e.what());
    EXPECT_EQ("C:\\logs\\agent.log", e.path());
}

TEST(Nesting, TraceLineIsAddedToTheObjectInFlightKeepingItsType)
{
    try {
        try {
            throw exc::win_sys_exc_t("inner", 5u);
        } catch (const std::exception& e) {
            exc::throw_nested_trace("COracleHomes: failed to find oracle homes.", e);
        }
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(5u, e.code());
        EXPECT_EQ("--tr:COracleHomes: failed to find oracle homes.",
                  std::string(e.what()).substr(std::string(e.what()).rfind('\n') + 1));
        return;
    }
    FAIL() << "the dynamic type was lost";
}

TEST(Nesting, ForeignExceptionBecomesRuntimeExceptionWithItsTextFirst)
{
    try {
        try {
            throw std::bad_alloc();
        } catch (const std::exception& e) {
            exc::throw_nested("outer", e);
        }
    } catch (const exc::runtime_exc_t& e) {
        ASSERT_EQ(2u, e.lines().size());
        EXPECT_EQ(std::string(std::bad_alloc().what()), e.lines()[0].text);
        EXPECT_EQ("outer", e.lines()[1].text);
        EXPECT_FALSE(e.lines()[1].is_trace);
        EXPECT_EQ(0u, e.code());
        return;
    }
    FAIL();
}

TEST(Nesting, SystemErrorKeepsItsCode)
{
    try {
        try {
            throw std::system_error(std::error_code(32, std::system_category()), "sharing");
        } catch (const std::exception& e) {
            exc::throw_nested_trace("outer", e);
        }
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(32u, e.code());
        return;
    }
    FAIL();
}

TEST(Nesting, CopyTakenEarlierDoesNotSeeLaterLines)
{
    std::shared_ptr<exc::exc_base_t> early;
    try {
        try {
            throw exc::runtime_exc_t("root");
        } catch (const std::exception& e) {
            early = exc::to_exc_ptr(e);
            exc::throw_nested_trace("later", e);
        }
    } catch (const exc::exc_base_t& e) {
        EXPECT_EQ(2u, e.lines().size());
    }
    ASSERT_TRUE(early);
    EXPECT_EQ(1u, early->lines().size());
}

TEST(Nesting, TraceValuesAreMergedWithExistingKeysKeepingTheirPlace)
{
    exc::exc_trace_t extra;
    extra.params = {{"b", "new"}, {"c", "3"}};
    extra.events = {{2, "event"}};
    try {
        try {
            exc::runtime_exc_t e("root");
            e.trace().params = {{"a", "1"}, {"b", "old"}};
            throw e;
        } catch (const std::exception& e) {
            exc::throw_nested("outer", e, extra);
        }
    } catch (const exc::exc_base_t& e) {
        const auto& params = e.trace().params;
        ASSERT_EQ(3u, params.size());
        EXPECT_EQ("b", params[1].first);
        EXPECT_EQ("new", params[1].second);
        EXPECT_EQ("c", params[2].first);
        EXPECT_EQ(1u, e.trace().events.size());
    }
}

TEST(Copies, CloneAndRethrowKeepClassCodeLinesAndThreadOfOrigin)
{
    std::shared_ptr<exc::exc_base_t> captured;
    uint32_t worker_id = 0;
    std::thread worker([&] {
        worker_id = GetCurrentThreadId();
        captured = catch_exc([] { throw exc::win_sys_exc_t("on a worker", 87u); });
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

TEST(Copies, FileLockedClonesAsItselfButRethrowsAsBase)
{
    exc::file_locked_exc_t locked("x.log");
    auto copy = locked.clone();
    EXPECT_NE(nullptr, dynamic_cast<exc::file_locked_exc_t*>(copy.get()));
    try {
        copy->rethrow();
    } catch (const exc::file_locked_exc_t&) {
        FAIL() << "a rethrown locked-file exception must be reduced to its base";
    } catch (const exc::exc_base_t& e) {
        EXPECT_STREQ("File [x.log] is locked.", e.what());
    }
}

TEST(Copies, ForeignExceptionBecomesRuntimeCopy)
{
    auto copy = catch_exc([] { throw std::runtime_error("plain"); });
    ASSERT_TRUE(copy);
    EXPECT_NE(nullptr, dynamic_cast<exc::runtime_exc_t*>(copy.get()));
    EXPECT_STREQ("plain", copy->what());
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

TEST(BufferForm, UnknownEventIsDroppedWithWarning)
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
    const auto lines = capture.texts();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("WARN|Unexpected trace event: [9]. Info: bad.", lines[0]);
}

TEST(BufferForm, TruncatedBufferFailsWithReaderWords)
{
    util::CBufWriter writer;
    writer.write_int(1);
    writer.write_int(100);
    util::CBufReader reader(&writer.buffer(), 1024);
    exc::exc_base_t loaded;
    try {
        loaded.load(reader);
        FAIL();
    } catch (const exc::exc_base_t& e) {
        EXPECT_STREQ("Out of the buffer, buffer size '8', struct size '100', buffer pointer "
                     "'8'.\n--tr:Failed to extract multi-byte string from buffer .",
                     e.what());
    }
}

} // namespace
