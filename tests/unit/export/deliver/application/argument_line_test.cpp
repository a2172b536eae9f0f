#include "export/deliver/application/argument_line.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/process/split_command_line.h"

namespace kestrune {
namespace {

constexpr wchar_t kZip[] = L"C:\\Out\\Main.zip";
constexpr wchar_t kBothTokens[] = L"-bridge:\"AltiumDesigner\" -bridge-version:\"0.2.3\"";

TEST(ReplacePlaceholders, EachIsReplacedByItsValue) {
  EXPECT_EQ(ReplacePlaceholders(L"%ODBPP%", kZip), kZip);
  EXPECT_EQ(ReplacePlaceholders(L"%ODBPP_ZIP%", kZip), kZip);
  EXPECT_EQ(ReplacePlaceholders(L"%ODBPP_DIR%", kZip), L"C:\\Out");
  EXPECT_EQ(ReplacePlaceholders(L"%ODBPP_NAME%", kZip), L"Main.zip");
  EXPECT_EQ(ReplacePlaceholders(L"%BRIDGE_CAD%", kZip), L"AltiumDesigner");
  EXPECT_EQ(ReplacePlaceholders(L"%BRIDGE_VERSION%", kZip), L"0.2.3");
}

TEST(ReplacePlaceholders, EveryOccurrenceIsReplacedWithoutQuotes) {
  EXPECT_EQ(ReplacePlaceholders(L"a %ODBPP_NAME%%ODBPP_NAME% \"%ODBPP_DIR%\" b", L"D:\\o p\\x.zip"),
            L"a x.zipx.zip \"D:\\o p\" b");
}

TEST(ReplacePlaceholders, OnlyTheExactSpellingCounts) {
  for (const wchar_t* text :
       {L"", L"%odbpp%", L"%ODBPP", L"ODBPP%", L"%%", L"%ODBPP_FILE%", L"% ODBPP%", L"%PATH%"}) {
    EXPECT_EQ(ReplacePlaceholders(text, kZip), text);
  }
  EXPECT_EQ(ReplacePlaceholders(L"%%ODBPP_NAME%%", kZip), L"%Main.zip%");
}

TEST(ReplacePlaceholders, FolderKeepsSeparatorOnlyAtDriveRoot) {
  EXPECT_EQ(ReplacePlaceholders(L"%ODBPP_DIR%", L"C:\\Main.zip"), L"C:\\");
  EXPECT_EQ(ReplacePlaceholders(L"%ODBPP_DIR%", L"\\\\server\\share\\Main.zip"),
            L"\\\\server\\share");
}

TEST(ReplacePlaceholders, ValueThatHoldsPlaceholderIsNeverExpanded) {
  EXPECT_EQ(ReplacePlaceholders(L"%ODBPP%", L"C:\\%BRIDGE_CAD%\\%ODBPP_NAME%"),
            L"C:\\%BRIDGE_CAD%\\%ODBPP_NAME%");
}

TEST(ReplacePlaceholders, NoPlaceholderFormsAcrossAnInsertedValue) {
  // "%BRIDGE_CAD" + value + "%": the value ends in the opening half of another placeholder.
  EXPECT_EQ(ReplacePlaceholders(L"%ODBPP_NAME%CAD%", L"C:\\%BRIDGE_"), L"%BRIDGE_CAD%");
}

TEST(ReplacePlaceholders, KindsAreReplacedInTheirOrder) {
  // Replaced from the left, %BRIDGE_CAD% would come first and leave "ODBPP%".
  EXPECT_EQ(ReplacePlaceholders(L"%BRIDGE_CAD%ODBPP%", kZip), std::wstring(L"%BRIDGE_CAD") + kZip);
}

TEST(HasToken, CountsAtStartOrAfterBlank) {
  EXPECT_TRUE(HasToken(L"-bridge:x", L"-bridge:"));
  EXPECT_TRUE(HasToken(L"-BRIDGE:", L"-bridge:"));
  for (const wchar_t blank : {L' ', L'\t', L'\n', L'\v', L'\f', L'\r'}) {
    EXPECT_TRUE(HasToken(std::wstring(L"a") + blank + L"-Bridge:y", L"-bridge:"));
  }
  EXPECT_TRUE(HasToken(L"x-bridge: -bridge:", L"-bridge:"));
}

TEST(HasToken, DoesNotCountAfterOtherCharacters) {
  EXPECT_FALSE(HasToken(L"", L"-bridge:"));
  EXPECT_FALSE(HasToken(L"x-bridge:y", L"-bridge:"));
  EXPECT_FALSE(HasToken(L"\"-bridge:y\"", L"-bridge:"));
  EXPECT_FALSE(HasToken(L"a\u00A0-bridge:y", L"-bridge:"));
  EXPECT_FALSE(HasToken(L"-bridge", L"-bridge:"));
  EXPECT_FALSE(HasToken(L"-bridge-version:1", L"-bridge:"));
}

TEST(WithIdentityTokens, EmptyLineBecomesExactlyTwoTokens) {
  EXPECT_EQ(WithIdentityTokens(L""), kBothTokens);
}

TEST(WithIdentityTokens, MissingTokensComeInFront) {
  EXPECT_EQ(WithIdentityTokens(L"a"), std::wstring(kBothTokens) + L" a");
  EXPECT_EQ(WithIdentityTokens(L"-bridge:mine a"), L"-bridge-version:\"0.2.3\" -bridge:mine a");
  EXPECT_EQ(WithIdentityTokens(L"a -Bridge-Version:9"),
            L"-bridge:\"AltiumDesigner\" a -Bridge-Version:9");
  EXPECT_EQ(WithIdentityTokens(L"-BRIDGE:a -bridge-version:b"), L"-BRIDGE:a -bridge-version:b");
  EXPECT_EQ(WithIdentityTokens(L"x-bridge:y"), std::wstring(kBothTokens) + L" x-bridge:y");
}

TEST(WithIdentityTokens, ASecondPassChangesNothing) {
  for (const wchar_t* line : {L"", L"a", L"-bridge:mine", L"x -bridge-version:1", L" "}) {
    const std::wstring once = WithIdentityTokens(line);
    EXPECT_EQ(WithIdentityTokens(once), once);
  }
}

TEST(WithSpaceToken, WritesTheDecimalsThatItNeeds) {
  EXPECT_EQ(WithSpaceToken(L"", 50000), L"-space:5mil");
  EXPECT_EQ(WithSpaceToken(L"", 12345), L"-space:1.2345mil");
  EXPECT_EQ(WithSpaceToken(L"", 5), L"-space:0.0005mil");
  EXPECT_EQ(WithSpaceToken(L"", 10), L"-space:0.001mil");
  EXPECT_EQ(WithSpaceToken(L"", 5000), L"-space:0.5mil");
  EXPECT_EQ(WithSpaceToken(L"", 100100), L"-space:10.01mil");
  EXPECT_EQ(WithSpaceToken(L"", 1000000), L"-space:100mil");
  EXPECT_EQ(WithSpaceToken(L"", std::numeric_limits<std::int64_t>::max()),
            L"-space:922337203685477.5807mil");
}

TEST(WithSpaceToken, IsAppendedToTheLine) {
  EXPECT_EQ(WithSpaceToken(L"a b", 10000), L"a b -space:1mil");
}

TEST(WithSpaceToken, AddsNothingForZeroOrPresentToken) {
  EXPECT_EQ(WithSpaceToken(L"a", std::nullopt), L"a");
  EXPECT_EQ(WithSpaceToken(L"a", 0), L"a");
  EXPECT_EQ(WithSpaceToken(L"a", -10000), L"a");
  EXPECT_EQ(WithSpaceToken(L"a -SPACE:2mil", 10000), L"a -SPACE:2mil");
  EXPECT_EQ(WithSpaceToken(L"a-space:2mil", 10000), L"a-space:2mil -space:1mil");
}

TEST(BuildArgumentLine, TemplateIsFramedByTokensAndSpacing) {
  EXPECT_EQ(BuildArgumentLine(L"%ODBPP%", kZip, std::nullopt),
            std::wstring(kBothTokens) + L" C:\\Out\\Main.zip");
  EXPECT_EQ(BuildArgumentLine(L"", kZip, std::nullopt), kBothTokens);
  EXPECT_EQ(BuildArgumentLine(L"", kZip, 12345), std::wstring(kBothTokens) + L" -space:1.2345mil");
}

TEST(BuildArgumentLine, TokensAreLookedForInReplacedLine) {
  EXPECT_EQ(BuildArgumentLine(L"%ODBPP_NAME%", L"C:\\a -bridge:b", std::nullopt),
            L"-bridge-version:\"0.2.3\" a -bridge:b");
}

TEST(QuoteCommandLineArgument, LeavesAloneWhatNeedsNoQuotes) {
  for (const wchar_t* text : {L"", L"a", L"C:\\a\\b.exe", L"a\\", L"\\\\\\", L"a\nb", L"'"}) {
    EXPECT_EQ(QuoteCommandLineArgument(text), text);
  }
}

TEST(QuoteCommandLineArgument, QuotesBlanksAndQuotes) {
  EXPECT_EQ(QuoteCommandLineArgument(L"a b"), L"\"a b\"");
  EXPECT_EQ(QuoteCommandLineArgument(L"a\tb"), L"\"a\tb\"");
  EXPECT_EQ(QuoteCommandLineArgument(L"\""), L"\"\\\"\"");
  EXPECT_EQ(QuoteCommandLineArgument(L"C:\\a b\\c.exe"), L"\"C:\\a b\\c.exe\"");
}

TEST(QuoteCommandLineArgument, DoublesBackslashesBeforeQuoteAndEnd) {
  EXPECT_EQ(QuoteCommandLineArgument(L"a b\\"), L"\"a b\\\\\"");
  EXPECT_EQ(QuoteCommandLineArgument(L"a b\\\\"), L"\"a b\\\\\\\\\"");
  EXPECT_EQ(QuoteCommandLineArgument(L"a\\\"b"), L"\"a\\\\\\\"b\"");
  EXPECT_EQ(QuoteCommandLineArgument(L"a\\\\\"b c\\d"), L"\"a\\\\\\\\\\\"b c\\d\"");
}

TEST(QuoteCommandLineArgument, EveryShortArgumentIsSplitBackUnchanged) {
  constexpr std::size_t kLongest = 5;
  constexpr std::wstring_view kCharacters = L"a \\\"";
  std::vector<std::wstring> arguments;
  for (const wchar_t character : kCharacters) {
    arguments.emplace_back(1, character);
  }
  for (std::size_t at = 0; at < arguments.size(); ++at) {
    const std::wstring argument = arguments[at];
    const std::wstring line = QuoteCommandLineArgument(argument) + L" next";
    ASSERT_EQ(SplitCommandLine(line), (std::vector<std::wstring>{argument, L"next"}));
    for (const wchar_t character : kCharacters) {
      if (argument.size() < kLongest) {
        arguments.push_back(argument + character);
      }
    }
  }
}

}  // namespace
}  // namespace kestrune
