// Command lines through the executable: the box and the exit code.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {
namespace {

using EntryTest = ExportTest;

TEST_F(EntryTest, UnknownCommandShowsTheInformationBox) {
  for (const wchar_t* line : {L"", L"board.PcbDoc"}) {
    EXPECT_TRUE(EndsWithBox(1, L"This helper is started by the Kestrune script.",
                            MB_ICONINFORMATION, RunKestrune(line)));
  }
  EXPECT_TRUE(Log().empty());
}

TEST_F(EntryTest, QuietDoesNotSilenceInvalidInstallerLine) {
  EXPECT_TRUE(EndsWithBox(2, L"Invalid installer command line.", MB_ICONERROR,
                          RunKestrune(L"--install --quiet --bogus")));
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
