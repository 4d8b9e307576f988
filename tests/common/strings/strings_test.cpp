#include "common/exc/exc.h"
#include "common/strings/buf_reader.h"
#include "common/strings/strings.h"

#include <gtest/gtest.h>

namespace {

using util::format_msg;

TEST(FormatMsg, PlaceholdersOutsideTheArgumentsStayLiteral)
{
    EXPECT_EQ("[a] %2", format_msg(std::string("[%1] %2"), std::string("a")));
    EXPECT_EQ("%0", format_msg(std::string("%0"), std::string("a")));
    EXPECT_EQ("%-1", format_msg(std::string("%-1"), std::string("a")));
}

TEST(FormatMsg, PercentWithoutNumberIsCopied)
{
    EXPECT_EQ("100%", format_msg(std::string("100%"), std::string("a")));
    EXPECT_EQ("%%", format_msg(std::string("%%"), std::string("a")));
    EXPECT_EQ("50% off a", format_msg(std::string("50% off %1"), std::string("a")));
}

TEST(FormatMsg, NumberIsParsedLikeStrtol)
{
    EXPECT_EQ("x", format_msg(std::string("% 1"), std::string("x")));
    EXPECT_EQ("%12", format_msg(std::string("%12"), std::string("a"), std::string("b")));
    EXPECT_EQ("b-a-b", format_msg(std::string("%2-%1-%2"), std::string("a"), std::string("b")));
}

TEST(FormatMsg, ArgumentsAreNotScannedAgain)
{
    EXPECT_EQ("[%1]", format_msg(std::string("[%1]"), std::string("%1")));
    EXPECT_EQ(L"[%2] d", format_msg(std::wstring(L"[%1] %4"), std::wstring(L"%2"),
                                    std::wstring(L"b"), std::wstring(L"c"), std::wstring(L"d")));
}

TEST(Conversions, RoundTripThroughUtf8AndAnsi)
{
    const std::wstring text = L"caf\u00e9 \u20ac \u4e2d";
    EXPECT_EQ(text, util::utf8_to_wide(util::wide_to_utf8(text)));
    EXPECT_EQ("caf\xc3\xa9", util::wide_to_utf8(L"caf\u00e9"));
    EXPECT_EQ(L"plain", util::ansi_to_wide("plain"));
    EXPECT_EQ("", util::wide_to_ansi(L""));
}

TEST(Conversions, EmbeddedNulCutsTheResult)
{
    const std::wstring text(L"ab\0cd", 5);
    EXPECT_EQ("ab", util::wide_to_utf8(text));
}

TEST(Conversions, InvalidUtf8FailsWithSourceInText)
{
    try {
        util::utf8_to_wide("\xff\xfe");
        // Some code pages accept anything; only a failure has a text to check.
    } catch (const exc::win_sys_exc_t& e) {
        ASSERT_EQ(3u, e.lines().size());
        EXPECT_EQ("Multibyte UTF8 string cannot be converted to unicode string. Source string: "
                  "[\xff\xfe].",
                  e.lines()[1].text);
    }
}

TEST(Conversions, SafeFormsNeverRaise)
{
    EXPECT_EQ(L"abc", util::ansi_to_wide_safe("abc"));
    EXPECT_EQ("abc", util::ansi_to_utf8_safe("abc"));
    EXPECT_EQ("abc", util::wide_to_ansi_safe(L"abc"));
}

TEST(Numbers, StrToIntTakesLeadingDigitsAndRejectsNone)
{
    EXPECT_EQ(12, util::str_to_int(std::string("12abc")));
    EXPECT_EQ(-7, util::str_to_int(std::string("  -7")));
    EXPECT_EQ(2147483647, util::str_to_int(std::string("99999999999")));
    EXPECT_EQ(42, util::str_to_int(std::wstring(L"42")));
    for (const char* bad : {"abc", ""}) {
        try {
            util::str_to_int(std::string(bad));
            FAIL() << bad;
        } catch (const exc::runtime_exc_t& e) {
            EXPECT_EQ(util::format_msg(std::string("Cannot convert string value to signed "
                                                   "integer. Given string: [%1]."),
                                       std::string(bad)),
                      e.what());
        }
    }
}

TEST(Numbers, StrToBoolTreatsEverythingButFalseAndZeroAsTrue)
{
    EXPECT_FALSE(util::str_to_bool("FALSE"));
    EXPECT_FALSE(util::str_to_bool("0"));
    EXPECT_TRUE(util::str_to_bool("True"));
    EXPECT_TRUE(util::str_to_bool("no"));
    EXPECT_TRUE(util::str_to_bool(""));
    EXPECT_EQ("true", util::bool_to_str(true));
}

TEST(Numbers, HexAndDecimalForms)
{
    EXPECT_EQ("0x00000005", util::hex_str(5u));
    EXPECT_EQ("0xffffffff", util::hex_str(-1));
    EXPECT_EQ("0x00000000deadbeef", util::hex_str(static_cast<uint64_t>(0xdeadbeefu)));
    EXPECT_EQ("18446744073709551615", util::int_to_str(static_cast<uint64_t>(-1)));
    EXPECT_EQ(L"-5", util::int_to_wstr(-5));
}

TEST(Base64, KnownVectorsAndRoundTrip)
{
    EXPECT_EQ("", util::base64_encode(""));
    EXPECT_EQ("Zg==", util::base64_encode("f"));
    EXPECT_EQ("Zm8=", util::base64_encode("fo"));
    EXPECT_EQ("Zm9vYmFy", util::base64_encode("foobar"));
    EXPECT_EQ("", util::base64_decode(""));
    std::string all;
    for (int i = 0; i < 256; ++i)
        all.push_back(static_cast<char>(i));
    for (size_t n = 0; n <= all.size(); n += 37)
        EXPECT_EQ(all.substr(0, n), util::base64_decode(util::base64_encode(all.substr(0, n))));
}

TEST(Base64, DecodingStopsAtFirstPadding)
{
    EXPECT_EQ("f", util::base64_decode("Zg==Zm9v"));
}

TEST(Guid, TextIsBracedAndUnique)
{
    const std::wstring a = util::guid_to_str(util::new_guid());
    const std::wstring b = util::guid_to_str(util::new_guid());
    ASSERT_EQ(38u, a.size());
    EXPECT_EQ(L'{', a.front());
    EXPECT_EQ(L'}', a.back());
    EXPECT_NE(a, b);
}

TEST(Text, CaseInsensitiveHelpers)
{
    EXPECT_TRUE(util::starts_with(std::wstring(L"BrelmTmpDB"), std::wstring(L"brelmtmp")));
    EXPECT_FALSE(util::starts_with(std::wstring(L"Br"), std::wstring(L"brelm")));
    EXPECT_TRUE(util::ends_with(std::string("agent.LOG"), std::string(".log")));
    EXPECT_EQ(1, util::index_of_arg({L"-x", L"-LOG", L"p"}, L"-log"));
    EXPECT_EQ(-1, util::index_of_arg({L"-x"}, L"-log"));
    EXPECT_EQ("line\r\n", util::strip_line_end("line\r\n\r\n"));
    EXPECT_EQ("line\n", util::strip_line_end("line\n"));
}

TEST(BufReader, ReadsWhatTheWriterWrote)
{
    util::CBufWriter writer;
    writer.write_bool(true);
    writer.write_int(0x01020304u);
    writer.write_string("text");
    EXPECT_EQ(0x04, writer.buffer()[1]);
    EXPECT_EQ(util::CBufWriter::growth_step, writer.buffer().capacity());
    util::CBufReader reader(&writer.buffer(), 16);
    EXPECT_TRUE(reader.read_bool());
    EXPECT_EQ(0x01020304u, reader.read_int());
    EXPECT_EQ("text", reader.read_string());
}

TEST(BufReader, FailuresCarryTheirOwnWords)
{
    util::CBufReader unset;
    try {
        unset.read_int();
        FAIL();
    } catch (const exc::exc_base_t& e) {
        EXPECT_STREQ("CBufReader buffer not initialized.\n--tr:Failed to extract integer value "
                     "from buffer.",
                     e.what());
    }
    util::CBufWriter writer;
    writer.write_string("too long");
    util::CBufReader limited(&writer.buffer(), 3);
    try {
        limited.read_string();
        FAIL();
    } catch (const exc::exc_base_t& e) {
        EXPECT_STREQ("Invalid length of the string '8'.\n--tr:Failed to extract multi-byte "
                     "string from buffer .",
                     e.what());
    }
    util::CBufReader empty(&writer.buffer(), 64);
    empty.read_string();
    EXPECT_THROW(empty.read_bool(), exc::runtime_exc_t);
}

TEST(BufReader, CheckedAtNamesIndexAndSize)
{
    std::vector<uint32_t> values{1, 2};
    EXPECT_EQ(2u, util::checked_at(values, 1));
    try {
        util::checked_at(values, 2);
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_STREQ("Out of the array bound. Index of the requested array element: [2]. Array "
                     "size: [2].",
                     e.what());
    }
}

} // namespace
