#include "common/log/log_line.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

constexpr ClockTime kMarch{2026, 3, 7, 9, 5, 2};

TEST(LogLine, WritesNumbersWithoutLeadingZeros) {
  EXPECT_EQ(FormatLogLine(kMarch, L"Prepare rejected", L"Error=x"),
            "[2026-3-7 9:5:2] Stage: Prepare rejected | Error=x\r\n");
}

TEST(LogLine, LeavesTheBarOutWithoutDetail) {
  EXPECT_EQ(FormatLogLine(kMarch, L"Begin", L""), "[2026-3-7 9:5:2] Stage: Begin\r\n");
}

TEST(LogLine, IsUtf8WithoutAMark) {
  EXPECT_EQ(FormatLogLine(kMarch, L"S", L"\u00E4\u20AC"),
            "[2026-3-7 9:5:2] Stage: S | \xC3\xA4\xE2\x82\xAC\r\n");
}

TEST(LogLine, TruncatesTextTo8192Units) {
  const std::string line = FormatLogLine(kMarch, L"S", std::wstring(9000, L'x'));
  EXPECT_EQ(line.size(), 8194U);
  EXPECT_EQ(line.substr(8190), "xx\r\n");
  const std::string head = "[2026-3-7 9:5:2] Stage: S | ";
  EXPECT_EQ(FormatLogLine(kMarch, L"S", std::wstring(8192 - head.size(), L'x')).size(), 8194U);
}

TEST(LogLine, CutSurrogatePairBecomesReplacementCharacter) {
  std::wstring detail(8192 - 28 - 1, L'x');
  detail.push_back(static_cast<wchar_t>(0xD83D));
  detail.push_back(static_cast<wchar_t>(0xDE00));
  const std::string line = FormatLogLine(kMarch, L"S", detail);
  EXPECT_EQ(line.substr(line.size() - 6), "x\xEF\xBF\xBD\r\n");
}

}  // namespace
}  // namespace kestrune
