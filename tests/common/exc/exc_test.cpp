#include "common/exc/exc.h"
#include "common/strings/buf_reader.h"
#include "support/capturing_receiver.h"
#include "support/failure_lines.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <new>
#include <optional>
#include <system_error>
#include <thread>

namespace {

// What comes out of a catch block that nests "outer" onto the exception `body`
// throws, caught as E; nothing when it is not an E.
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
    exc::runtime_exc_t e("File [%1] of [%2] at %3.", "x", "y", "z");
    e.add_trace_message("second");
    e.add_message("third\nstill third");
    EXPECT_STREQ("File [x] of [y] at z.\n--tr:second\nthird\nstill third", e.what());
    EXPECT_EQ("File [x] of [y] at z.\nsecond\nthird\nstill third", e.plain_text());
    ASSERT_EQ(3u, e.lines().size());
    EXPECT_TRUE(e.lines()[1].is_trace);
    EXPECT_STREQ("", exc::exc_base_t().what());
}

TEST(Exceptions, SystemAndComErrorsPutTheirTextAndCodeAroundTheMessage)
{
    exc::win_sys_exc_t e("Failed to open file [%1] in readonly mode.", "C:\\data\\x.dbf",
                         ERROR_FILE_NOT_FOUND);
    const std::string system_text = exc::get_error_text(ERROR_FILE_NOT_FOUND);
    ASSERT_FALSE(system_text.empty());
    EXPECT_NE('\n', system_text.back());
    EXPECT_EQ(system_text + "\nFailed to open file [C:\\data\\x.dbf] in readonly mode.\n"
                            "--tr:Error code: 0x00000002",
              e.text());
    EXPECT_EQ(2u, e.code());
    EXPECT_EQ("Error code: 0x00000000", exc::win_sys_exc_t(0u).lines().at(1).text);

    // Network codes that the system table lacks are asked of wininet.dll only
    // when the host has loaded it; the lookup never loads it.
    const DWORD timed_out = 12002;
    ASSERT_EQ(nullptr, GetModuleHandleW(L"wininet.dll"));
    const std::string without_module = exc::get_error_text(timed_out);
    EXPECT_EQ(std::system_category().message(static_cast<int>(timed_out)), without_module);
    EXPECT_EQ(nullptr, GetModuleHandleW(L"wininet.dll"));
    HMODULE wininet = LoadLibraryW(L"wininet.dll");
    ASSERT_NE(nullptr, wininet);
    const std::string from_module = exc::get_error_text(timed_out);
    FreeLibrary(wininet);
    EXPECT_NE(without_module, from_module);
    ASSERT_FALSE(from_module.empty());
    EXPECT_NE('\n', from_module.back());

    SetErrorInfo(0, nullptr);
    exc::com_exc_t com(static_cast<long>(0x80004005L), "Cannot get the path");
    EXPECT_EQ(" Error code: 0x80004005\nCannot get the path", com.text());
    EXPECT_EQ(0x80004005u, com.code());
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
    EXPECT_EQ(std::string(std::bad_alloc().what()) + "\nouter", foreign->text());
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
    using params_t = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ((params_t{{"a", "1"}, {"b", "new"}, {"c", "3"}}), merged->trace().params);
    EXPECT_EQ(1u, merged->trace().events.size());
    EXPECT_EQ("root\nouter", merged->text());
    EXPECT_EQ("root", early->text());
    EXPECT_EQ((params_t{{"a", "1"}, {"b", "old"}}), early->trace().params);
}

TEST(Copies, CopiesKeepClassCodeLinesAndThreadOfOriginButALockedFileRethrowsAsBase)
{
    std::shared_ptr<exc::exc_base_t> captured;
    uint32_t worker_id = 0;
    std::thread([&] {
        worker_id = GetCurrentThreadId();
        captured = exc::to_exc_ptr(exc::win_sys_exc_t("on a worker", 87u));
    }).join();
    try {
        captured->rethrow();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_EQ(87u, e.code());
        EXPECT_EQ(worker_id, e.thread_id());
        EXPECT_NE(GetCurrentThreadId(), e.thread_id());
        EXPECT_EQ(captured->plain_text(), e.plain_text());
    } catch (...) {
        ADD_FAILURE() << "rethrow lost the class";
    }

    auto locked = exc::file_locked_exc_t("x.log").clone();
    EXPECT_NE(nullptr, dynamic_cast<exc::file_locked_exc_t*>(locked.get()));
    try {
        locked->rethrow();
    } catch (const exc::file_locked_exc_t&) {
        ADD_FAILURE() << "a rethrown locked-file exception must be reduced to its base";
    } catch (const exc::exc_base_t& e) {
        EXPECT_STREQ("File [x.log] is locked.", e.what());
    }
    auto foreign = exc::to_exc_ptr(std::runtime_error("plain"));
    EXPECT_NE(nullptr, dynamic_cast<exc::runtime_exc_t*>(foreign.get()));
    EXPECT_STREQ("plain", foreign->what());
}

TEST(BufferForm, SaveAndLoadRoundTripDroppingAnUnknownEventWithAWarning)
{
    exc::runtime_exc_t original("root", 7u);
    original.add_trace_message("trace");
    original.trace().params = {{"k", "v"}};
    original.trace().events = {{9, "bad"}, {7, "seven"}};
    util::CBufWriter writer;
    original.save(writer);

    test::log_capture_t capture;
    exc::runtime_exc_t loaded("placeholder");
    util::CBufReader reader(&writer.buffer(), 1u << 20);
    loaded.load(reader);
    EXPECT_STREQ(original.what(), loaded.what());
    EXPECT_EQ(7u, loaded.code());
    EXPECT_EQ(original.trace().params, loaded.trace().params);
    ASSERT_EQ(1u, loaded.trace().events.size());
    EXPECT_EQ("seven", loaded.trace().events[0].info);
    EXPECT_EQ(writer.buffer().size(), reader.position());
    EXPECT_EQ(std::vector<std::string>{"WARN|Unexpected trace event: [9]. Info: bad."},
              capture.texts());

    util::CBufWriter truncated;
    truncated.write_int(1);
    truncated.write_int(100);
    util::CBufReader short_reader(&truncated.buffer(), 1024);
    EXPECT_EQ("Out of the buffer, buffer size '8', struct size '100', buffer pointer '8'.\n"
              "--tr:Failed to extract multi-byte string from buffer .",
              test::failure_text([&] { exc::exc_base_t().load(short_reader); }));
}

} // namespace
