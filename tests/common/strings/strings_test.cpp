#include "common/exc/exc.h"
#include "common/strings/buf_reader.h"
#include "common/strings/strings.h"
#include "support/failure_lines.h"

#include <gtest/gtest.h>

namespace {

using test::failure_text;

TEST(FormatMsg, OnlyNumberedPlaceholdersWithinTheArgumentsAreReplacedAndArgumentsNotRescanned)
{
    const struct {
        const char* format;
        const char* expected;
    } rows[] = {
        {"[%1] %3", "[a] %3"}, {"%0", "%0"},   {"%-1", "%-1"},         {"100%", "100%"},
        {"%%", "%%"},          {"% 1", "a"},   {"%12", "%12"},         {"%2-%1-%2", "b-a-b"},
        {"50% off %1", "50% off a"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, util::format_msg(std::string(row.format), std::string("a"),
                                                 std::string("b")))
            << row.format;
    EXPECT_EQ(L"[%2] d", util::format_msg(std::wstring(L"[%1] %4"), std::wstring(L"%2"),
                                          std::wstring(L"b"), std::wstring(L"c"), std::wstring(L"d")));
}

TEST(Conversions, RoundTripCutAtNulAndInvalidUtf8NamesTheSource)
{
    const std::wstring text = L"caf\u00e9 \u20ac \u4e2d";
    EXPECT_EQ(text, util::utf8_to_wide(util::wide_to_utf8(text)));
    EXPECT_EQ("caf\xc3\xa9", util::wide_to_utf8(L"caf\u00e9"));
    EXPECT_EQ("ab", util::wide_to_utf8(std::wstring(L"ab\0cd", 5)));
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

TEST(Numbers, StrToIntTakesLeadingDigitsAndRejectsNone)
{
    EXPECT_EQ(12, util::str_to_int(std::string("12abc")));
    EXPECT_EQ(-7, util::str_to_int(std::string("  -7")));
    EXPECT_EQ(2147483647, util::str_to_int(std::string("99999999999")));
    EXPECT_EQ(42, util::str_to_int(std::wstring(L"42")));
    for (const char* bad : {"abc", ""})
        EXPECT_EQ(std::string("Cannot convert string value to signed integer. Given string: [") +
                      bad + "].",
                  failure_text([&] { util::str_to_int(std::string(bad)); }));
}

TEST(Numbers, BoolIsFalseOnlyForFalseAndZeroAndHexHasFixedWidth)
{
    EXPECT_FALSE(util::str_to_bool("FALSE"));
    EXPECT_FALSE(util::str_to_bool("0"));
    for (const char* truthy : {"True", "no", ""})
        EXPECT_TRUE(util::str_to_bool(truthy)) << truthy;
    EXPECT_EQ("0xffffffff", util::hex_str(-1));
    EXPECT_EQ("0x00000000deadbeef", util::hex_str(static_cast<uint64_t>(0xdeadbeefu)));
}

TEST(Base64, KnownVectorsRoundTripAndDecodingStopsAtPadding)
{
    EXPECT_EQ("Zg==", util::base64_encode("f"));
    EXPECT_EQ("Zm8=", util::base64_encode("fo"));
    EXPECT_EQ("Zm9vYmFy", util::base64_encode("foobar"));
    std::string all;
    for (int i = 0; i < 256; ++i)
        all.push_back(static_cast<char>(i));
    for (size_t n = 0; n <= all.size(); n += 37)
        EXPECT_EQ(all.substr(0, n), util::base64_decode(util::base64_encode(all.substr(0, n))));
    EXPECT_EQ("f", util::base64_decode("Zg==Zm9v"));
}

TEST(Text, CaseInsensitiveHelpersAndLineEndStripping)
{
    EXPECT_TRUE(util::istarts_with(std::wstring(L"BrelmTmpDB"), std::wstring(L"brelmtmp")));
    EXPECT_FALSE(util::istarts_with(std::wstring(L"Br"), std::wstring(L"brelm")));
    EXPECT_FALSE(util::starts_with(std::wstring(L"BrelmTmpDB"), std::wstring(L"brelmtmp")));
    EXPECT_TRUE(util::ends_with(std::string("agent.LOG"), std::string(".log")));
    EXPECT_EQ("line\r\n", util::strip_line_end("line\r\n\r\n"));
    EXPECT_EQ("line\n", util::strip_line_end("line\n"));
}

TEST(BufReader, ReadsWhatTheWriterWroteAndFailuresCarryTheirOwnWords)
{
    util::CBufWriter writer;
    writer.write_bool(true);
    writer.write_int(0x01020304u);
    writer.write_string("text");
    EXPECT_EQ(0x04, writer.buffer()[1]);
    util::CBufReader reader(&writer.buffer(), 16);
    EXPECT_TRUE(reader.read_bool());
    EXPECT_EQ(0x01020304u, reader.read_int());
    EXPECT_EQ("text", reader.read_string());
    EXPECT_THROW(reader.read_bool(), exc::runtime_exc_t);

    util::CBufReader unset;
    EXPECT_EQ("CBufReader buffer not initialized.\n--tr:Failed to extract integer value from "
              "buffer.",
              failure_text([&] { unset.read_int(); }));
    util::CBufWriter long_string;
    long_string.write_string("too long");
    util::CBufReader limited(&long_string.buffer(), 3);
    EXPECT_EQ("Invalid length of the string '8'.\n--tr:Failed to extract multi-byte string from "
              "buffer .",
              failure_text([&] { limited.read_string(); }));
    std::vector<uint32_t> values{1, 2};
    EXPECT_EQ(2u, util::checked_at(values, 1));
    EXPECT_EQ("Out of the array bound. Index of the requested array element: [2]. Array size: [2].",
              failure_text([&] { util::checked_at(values, 2); }));
}

} // namespace
