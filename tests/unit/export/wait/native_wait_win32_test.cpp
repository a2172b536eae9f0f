#include "export/wait/native_wait_win32.h"

#include <gmock/gmock.h>

#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/scripted_calls_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;

class NativeWaitTest : public ExportTest {
 protected:
  int Wait() { return WaitForNativeOutput(calls_, {zip_, report_, result_}); }

  std::string Waiting() const {
    return Entry(L"Waiting for native output", L"Expected=" + zip_ + L" Report=" + report_);
  }
  std::string Stable(const std::wstring& report) const {
    return Entry(L"Native output stable", L"Path=" + zip_ + L" Size=5 ReportExists=" + report);
  }

  ScriptedCalls calls_;
  std::wstring zip_ = Scratch(L"Bridge.zip");
  std::wstring report_ = Scratch(L"Bridge.REP");
  std::wstring result_ = Scratch(L"wait.txt");
};

TEST_F(NativeWaitTest, CompleteArchiveIsReportedAfterThreeSleeps) {
  PutFile(zip_, "12345");
  PutFile(report_, "");
  PutFile(result_, "a result of an earlier run");
  EXPECT_EQ(Wait(), 0);
  EXPECT_EQ(calls_.Waited(), 1500U);
  EXPECT_EQ(FileBytes(result_), "OK\r\n5");
  EXPECT_THAT(Log(), ElementsAre(Waiting(), Stable(L"yes")));
}

TEST_F(NativeWaitTest, IncompleteArchiveFailsAfterTwoMinutes) {
  const std::string timeout = Entry(L"Native output timeout", L"Expected=" + zip_);
  EXPECT_EQ(Wait(), 5);
  EXPECT_EQ(calls_.Waited(), 120'000U);
  EXPECT_EQ(FileBytes(result_), "ERROR\r\n");
  EXPECT_THAT(Log(), ElementsAre(Waiting(), timeout));
  PutFile(zip_, "");
  EXPECT_EQ(Wait(), 5);
  ASSERT_TRUE(DeleteFileW(zip_.c_str()) && CreateDirectoryW(zip_.c_str(), nullptr));
  EXPECT_EQ(Wait(), 5);
}

TEST_F(NativeWaitTest, ArchivePathMayExceedTheClassicLimit) {
  zip_ = Scratch(std::wstring(200, L'x') + L"\\" + std::wstring(100, L'\u0436') + L".zip");
  PutFile(zip_, "12");
  EXPECT_EQ(Wait(), 0);
  EXPECT_EQ(FileBytes(result_), "OK\r\n2");
}

TEST_F(NativeWaitTest, AFolderIsNoReport) {
  PutFile(zip_, "12345");
  report_ = Scratch(L"");
  EXPECT_EQ(Wait(), 0);
  EXPECT_THAT(Log(), ElementsAre(Waiting(), Stable(L"no")));
}

TEST_F(NativeWaitTest, ResultThatCannotBeWrittenChangesNothing) {
  PutFile(zip_, "12345");
  result_ = Scratch(L"missing\\wait.txt");
  EXPECT_EQ(Wait(), 0);
  EXPECT_FALSE(Exists(Scratch(L"missing")));
  EXPECT_THAT(Log(), ElementsAre(Waiting(), Stable(L"no")));
}

TEST_F(NativeWaitTest, ArchiveThatHostStillHoldsHasSize) {
  PutFile(zip_, "12345");
  const FileHandle held = HoldOpen(zip_, GENERIC_READ | GENERIC_WRITE, 0);
  EXPECT_EQ(Wait(), 0);
  EXPECT_EQ(FileBytes(result_), "OK\r\n5");
}

TEST_F(NativeWaitTest, ArchiveAboveFourGibibytesIsReportedWhole) {
  PutSparseFile(zip_, (std::uint64_t{1} << 32) + 10);
  EXPECT_EQ(Wait(), 0);
  EXPECT_EQ(FileBytes(result_), "OK\r\n4294967306");
}

}  // namespace
}  // namespace kestrune
