#include "common/text/text.h"

#include <gtest/gtest.h>

#include <limits>

namespace kestrune {
namespace {

TEST(Text, LowersAsciiOnly) {
  EXPECT_EQ(LowerAscii(std::string_view("AbZ_\xC4")), "abz_\xC4");
  EXPECT_EQ(LowerAscii(std::wstring_view(L"AbZ_\u00C4")), L"abz_\u00C4");
}

TEST(Text, AlphanumericCharactersAreAscii) {
  for (const char c : std::string_view("09azAZ")) {
    EXPECT_TRUE(IsAsciiAlphanumeric(c)) << c;
  }
  for (const char c : std::string_view("/:@[`{\xE4")) {
    EXPECT_FALSE(IsAsciiAlphanumeric(c)) << c;
  }
}

TEST(Text, TrimsOnlyTheGivenBlanks) {
  EXPECT_EQ(Trim(" \t a b\r\n", " \t\r\n"), "a b");
  EXPECT_EQ(Trim("\v a", " \t\r\n"), "\v a");
  EXPECT_EQ(Trim(" \t", " \t"), "");
  EXPECT_EQ(Trim(L"\t \u00A0a\u00A0 ", L" \t"), L"\u00A0a\u00A0");
  EXPECT_EQ(Trim(L" ", L" \t"), L"");
}

TEST(Text, TextModeExpandsLineFeeds) {
  EXPECT_EQ(WithWindowsLineEnds(std::string_view("a\nb\r\n\n")), "a\r\nb\r\r\n\r\n");
  EXPECT_EQ(WithWindowsLineEnds(std::wstring_view(L"\n")), L"\r\n");
}

TEST(Text, ReplacementIsNeverSearchedAgain) {
  EXPECT_EQ(ReplaceAll("@A@x@A@", "@A@", "<@A@>"), "<@A@>x<@A@>");
  EXPECT_EQ(ReplaceAll("none", "@A@", "x"), "none");
  EXPECT_EQ(ReplaceAll("aaa", "aa", "b"), "ba");
}

TEST(Text, WidensBytesOneByOne) {
  EXPECT_EQ(WidenBytes("a\xE4\xFF"), L"a\u00E4\u00FF");
}

TEST(Text, Utf16DropsAnOddByte) {
  EXPECT_EQ(WideFromUtf16Le(std::string_view("A\0\xAC\x20x", 5)), L"A\u20AC");
  EXPECT_EQ(WideFromUtf16Le(std::string_view("A\0\xAC\x20", 4)), L"A\u20AC");
}

TEST(Text, Utf8AndUtf16AreInverse) {
  const std::string utf8 = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
  const std::wstring wide = WideFromUtf8(utf8);
  ASSERT_EQ(wide.size(), 5U);
  EXPECT_EQ(static_cast<unsigned>(wide[3]), 0xD83DU);
  EXPECT_EQ(static_cast<unsigned>(wide[4]), 0xDE00U);
  EXPECT_EQ(Utf8FromWide(wide), utf8);
}

TEST(Text, MalformedTextBecomesReplacementCharacters) {
  EXPECT_EQ(WideFromUtf8("\xC0\x80"), L"\uFFFD\uFFFD");            // overlong
  EXPECT_EQ(WideFromUtf8("\xE2\x82"), L"\uFFFD\uFFFD");            // cut short
  EXPECT_EQ(WideFromUtf8("\xED\xA0\x80"), L"\uFFFD\uFFFD\uFFFD");  // surrogate
  std::wstring unpaired(1, static_cast<wchar_t>(0xD800));
  EXPECT_EQ(Utf8FromWide(unpaired), "\xEF\xBF\xBD");
  unpaired.push_back(L'a');
  EXPECT_EQ(Utf8FromWide(unpaired),
            "\xEF\xBF\xBD"
            "a");
}

TEST(Text, DecimalDigitsAreTakenOffTheFront) {
  std::wstring_view text = L"0042x1";
  EXPECT_EQ(TakeDecimal(text, 100), 42U);
  EXPECT_EQ(text, L"x1");
  EXPECT_EQ(TakeDecimal(text, 100), std::nullopt);
  EXPECT_EQ(text, L"x1");
  text = {};
  EXPECT_EQ(TakeDecimal(text, 100), std::nullopt);
}

TEST(Text, DecimalNumbersEndAtTheirLimit) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
  const auto take = [](std::wstring_view text, std::uint64_t limit) {
    const auto number = TakeDecimal(text, limit);
    EXPECT_TRUE(text.empty());
    return number;
  };
  EXPECT_EQ(take(L"100", 100), 100U);
  EXPECT_EQ(take(L"101", 100), 100U);
  EXPECT_EQ(take(L"1010", 100), 100U);
  EXPECT_EQ(take(L"1000", 109), 109U);
  EXPECT_EQ(take(L"9", 3), 3U);
  EXPECT_EQ(take(L"18446744073709551615", kLargest), kLargest);
  EXPECT_EQ(take(L"18446744073709551616", kLargest), kLargest);
  EXPECT_EQ(take(L"99999999999999999999999", kLargest), kLargest);
}

TEST(Text, PaddedDecimalNeverTruncates) {
  EXPECT_EQ(PaddedDecimal(7, 3), L"007");
  EXPECT_EQ(PaddedDecimal(1234, 3), L"1234");
  EXPECT_EQ(PaddedDecimal(0, 0), L"0");
}

}  // namespace
}  // namespace kestrune
