// The command line as a person or a script writes it: the mode that runs, the box and the exit
// code.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {
namespace {

constexpr std::wstring_view kStartedByScript = L"This helper is started by the Kestrune script.";
constexpr std::wstring_view kInvalidLine = L"Invalid installer command line.";

using EntryTest = ExportTest;

TEST_F(EntryTest, NoArgumentShowsTheInformationBox) {
  EXPECT_TRUE(EndsWithBox(1, kStartedByScript, MB_ICONINFORMATION, RunKestrune(L"")));
  EXPECT_TRUE(Log().empty());
}

TEST_F(EntryTest, UnknownCommandShowsTheInformationBox) {
  const std::vector<std::wstring> lines = {
      L"board.PcbDoc",      L"\"\"",        L"--Prepare a b c",
      L"--Install",         L"--install=x", L"-install",
      L"--quiet --install", L"--help",      L"--wait-Native a b c",
  };
  for (const std::wstring& line : lines) {
    EXPECT_TRUE(EndsWithBox(1, kStartedByScript, MB_ICONINFORMATION, RunKestrune(line)))
        << ::testing::PrintToString(line);
  }
  EXPECT_TRUE(Log().empty());
}

TEST_F(EntryTest, RuntimeKeywordNeedsItsArgumentCount) {
  const std::vector<std::wstring> lines = {
      L"--prepare",           L"--prepare a b",           L"--prepare a b c d e",
      L"--wait-native a b",   L"--wait-native a b c d",   L"--finalize a",
      L"--finalize a b c",    L"--finalize-auto",         L"--finalize-auto a 1 x",
      L"--position-window 1", L"--position-window 1 2 3",
  };
  for (const std::wstring& line : lines) {
    EXPECT_TRUE(EndsWithBox(1, kStartedByScript, MB_ICONINFORMATION, RunKestrune(line)))
        << ::testing::PrintToString(line);
  }
  EXPECT_TRUE(Log().empty());
  EXPECT_FALSE(Exists(folders_.temporary));
}

TEST_F(EntryTest, InvalidInstallerLineShowsTheErrorBox) {
  const std::vector<std::wstring> lines = {
      L"--install --bogus",     L"--install --major", L"--update --profile",
      L"--uninstall --package", L"--status --Quiet",  L"--install --update",
      L"--status extra",        L"--status \"\"",     L"--install --major=21",
  };
  for (const std::wstring& line : lines) {
    EXPECT_TRUE(EndsWithBox(2, kInvalidLine, MB_ICONERROR, RunKestrune(line)))
        << ::testing::PrintToString(line);
  }
}

TEST_F(EntryTest, QuietDoesNotSilenceInvalidInstallerLine) {
  EXPECT_TRUE(
      EndsWithBox(2, kInvalidLine, MB_ICONERROR, RunKestrune(L"--install --quiet --bogus")));
}

TEST_F(EntryTest, FourInvalidStartsShowFourBoxes) {
  std::vector<ProgramRun> runs;
  for (int i = 0; i < 4; ++i) {
    runs.emplace_back(KestrunePath(), L"");
  }
  for (ProgramRun& run : runs) {
    const HWND box = run.WaitForBox(10'000);
    ASSERT_NE(box, nullptr);
    DismissBox(box);
    EXPECT_EQ(run.WaitForExit(60'000), 1);
  }
}

}  // namespace
}  // namespace kestrune
