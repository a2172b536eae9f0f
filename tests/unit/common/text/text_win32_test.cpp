#include "common/text/text_win32.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

constexpr UINT kWestern = 1252;
constexpr UINT kCyrillic = 1251;

TEST(AnsiText, ExactCharactersConvertBothWays) {
  std::string bytes;
  EXPECT_TRUE(AnsiFromWide(L"C:\\\u00C4\u20AC.PcbDoc", bytes, kWestern));
  EXPECT_EQ(bytes, "C:\\\xC4\x80.PcbDoc");
  EXPECT_EQ(WideFromAnsi(bytes, kWestern), L"C:\\\u00C4\u20AC.PcbDoc");
  EXPECT_TRUE(AnsiFromWide(L"\u0416", bytes, kCyrillic));
  EXPECT_EQ(bytes, "\xC6");
}

TEST(AnsiText, MissingEquivalentIsAnError) {
  std::string bytes = "old";
  EXPECT_FALSE(AnsiFromWide(L"a\u0416", bytes, kWestern));
  EXPECT_EQ(bytes, "");
  EXPECT_TRUE(AnsiFromWide(L"a?", bytes, kWestern)) << "a real question mark is no loss";
}

TEST(AnsiText, ABestFitIsALoss) {
  std::string bytes;
  for (const wchar_t* text : {L"\u2212", L"\uFF21", L"\u0100"}) {
    EXPECT_FALSE(AnsiFromWide(text, bytes, kWestern));
  }
}

TEST(AnsiText, AnEmptyTextIsNoFailure) {
  std::string bytes = "old";
  EXPECT_TRUE(AnsiFromWide(L"", bytes));
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(WideFromAnsi(""), L"");
  EXPECT_EQ(AnsiFromWideLossy(L""), "");
}

TEST(AnsiText, Utf8CodePageRejectsOnlyHalfPairs) {
  std::string bytes;
  EXPECT_TRUE(AnsiFromWide(L"\u0416\U0001F600", bytes, CP_UTF8));
  EXPECT_EQ(bytes, "\xD0\x96\xF0\x9F\x98\x80");
  EXPECT_FALSE(AnsiFromWide(std::wstring(1, wchar_t{0xD800}), bytes, CP_UTF8));
}

TEST(AnsiText, LossyConversionWritesReplacements) {
  EXPECT_EQ(AnsiFromWideLossy(L"a\u4E00b", kWestern), "a?b");
}

TEST(AnsiText, NulCharactersAreOrdinary) {
  std::string bytes;
  EXPECT_TRUE(AnsiFromWide(std::wstring(L"a\0b", 3), bytes, kWestern));
  EXPECT_EQ(bytes, std::string("a\0b", 3));
  EXPECT_EQ(WideFromAnsi(bytes, kWestern), std::wstring(L"a\0b", 3));
}

TEST(AnsiText, OnlyDoubleByteCodePagesHaveLeads) {
  if (!IsValidCodePage(932) || !IsValidCodePage(950)) {
    GTEST_SKIP() << "this system lacks the code pages";
  }
  EXPECT_TRUE(IsLeadByte('\x83', 932));
  EXPECT_FALSE(IsLeadByte('|', 932));
  EXPECT_TRUE(IsLeadByte('\xA4', 950));
  EXPECT_FALSE(IsLeadByte('\x83', 1252));
}

TEST(AnsiText, RoundTripFailsOutsideTheCodePage) {
  EXPECT_TRUE(SurvivesAnsiRoundTrip(L"C:\\Users\\x"));
  EXPECT_FALSE(SurvivesAnsiRoundTrip(std::wstring(1, wchar_t{0xD800})));
}

}  // namespace
}  // namespace kestrune
