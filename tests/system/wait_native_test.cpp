// `--wait-native` through the executable, with files that appear, grow, stall and disappear.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "tests/support/files_win32.h"
#include "tests/support/export/prepare_fixture_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;

class WaitNativeTest : public ExportTest {
 protected:
  struct Paths {
    std::wstring expected;
    std::wstring report;
    std::wstring result;
  };

  Paths PathsFor(const std::wstring& name) const {
    return {Scratch(name + L".zip"), Scratch(name + L".REP"), Scratch(name + L".txt")};
  }

  static ProgramRun Start(const Paths& paths) {
    return ProgramRun(KestrunePath(), L"--wait-native " + Quoted(paths.expected) + L" " +
                                          Quoted(paths.report) + L" " + Quoted(paths.result));
  }

  static std::string BeginEntry(const Paths& paths) {
    return Entry(L"Waiting for native output",
                 L"Expected=" + paths.expected + L" Report=" + paths.report);
  }

  static std::string StableEntry(const Paths& paths, const std::wstring& size) {
    return Entry(L"Native output stable",
                 L"Path=" + paths.expected + L" Size=" + size + L" ReportExists=no");
  }
};

TEST_F(WaitNativeTest, ACompleteArchiveIsReportedAfterFourEqualLooks) {
  const Paths paths = PathsFor(L"complete");
  PutFile(paths.expected, "0123456789");
  PutFile(paths.result, "a long leftover of an earlier export");
  const RunOutcome outcome = Finish(Start(paths));
  EXPECT_TRUE(EndsSilentlyWith(0, outcome));
  EXPECT_EQ(FileBytes(paths.result), "OK\r\n10");
  EXPECT_THAT(Log(), ElementsAre(BeginEntry(paths), StableEntry(paths, L"10")));
  // Four polls have three sleeps of half a second between them.
  EXPECT_GE(outcome.milliseconds, 1400U);
}

TEST_F(WaitNativeTest, PathsOutsideTheAnsiCodePageAndBeyondTheClassicLimitAreWatched) {
  Paths paths = PathsFor(L"архив");
  std::wstring folder = Scratch(L"long");
  while (folder.size() < 400) {
    folder += L"\\" + std::wstring(60, L'x');
  }
  paths.expected = folder + L"\\Bridge.zip";
  PutFile(paths.expected, "12");
  EXPECT_TRUE(EndsSilentlyWith(0, Finish(Start(paths))));
  EXPECT_EQ(FileBytes(paths.result), "OK\r\n2");
}

TEST_F(WaitNativeTest, TwoMinutesWithoutACompleteArchiveEndWithError) {
  KESTRUNE_NEEDS_TIME();
  // All incomplete archives are waited for at the same time, so that the two minutes pass only
  // once.
  const Paths absent = PathsFor(L"absent");
  const Paths empty = PathsFor(L"empty");
  const Paths folder = PathsFor(L"folder");
  const Paths growing = PathsFor(L"growing");
  Paths mute = PathsFor(L"mute");
  mute.result = Scratch(L"no folder\\result.txt");
  PutFile(empty.expected, "");
  ASSERT_TRUE(CreateDirectoryW(folder.expected.c_str(), nullptr));
  PutFile(growing.expected, "1");

  const ULONGLONG begin = GetTickCount64();
  std::vector<ProgramRun> runs;
  for (const Paths* paths :
       std::initializer_list<const Paths*>{&absent, &empty, &folder, &growing, &mute}) {
    runs.push_back(Start(*paths));
    ASSERT_TRUE(runs.back().Started());
    Sleep(30);
  }
  {
    const FileHandle writer(CreateFileW(growing.expected.c_str(), FILE_APPEND_DATA,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(static_cast<bool>(writer));
    while (!runs.back().WaitForExit(200) && GetTickCount64() - begin < 200'000) {
      ASSERT_TRUE(TryWriteAll(writer.Get(), "x"));
    }
  }
  for (ProgramRun& run : runs) {
    EXPECT_TRUE(EndsSilentlyWith(5, Finish(std::move(run), 10'000)));
  }
  const ULONGLONG waited = GetTickCount64() - begin;
  EXPECT_GE(waited, 119'000U);
  EXPECT_LE(waited, 200'000U);
  for (const Paths* paths :
       std::initializer_list<const Paths*>{&absent, &empty, &folder, &growing}) {
    EXPECT_EQ(FileBytes(paths->result), "ERROR\r\n");
  }
  EXPECT_FALSE(Exists(Scratch(L"no folder")));
  const std::vector<std::string> log = Log();
  EXPECT_THAT(log,
              ::testing::Contains(Entry(L"Native output timeout", L"Expected=" + absent.expected)));
  EXPECT_THAT(log, ::testing::Not(
                       ::testing::Contains(::testing::StartsWith("Stage: Native output stable"))));
}

}  // namespace
}  // namespace kestrune
