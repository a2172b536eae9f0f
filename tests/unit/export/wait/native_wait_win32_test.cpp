#include "export/wait/native_wait_win32.h"

#include <gmock/gmock.h>

#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/scripted_calls_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;

class NativeWaitTest : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    zip_ = Scratch(L"Bridge.zip");
    report_ = Scratch(L"Bridge.REP");
    result_ = Scratch(L"wait.txt");
  }
  int Wait() { return WaitForNativeOutput(calls_, {zip_, report_, result_}); }

  std::string Waiting() const {
    return "Stage: Waiting for native output | Expected=" + Utf8FromWide(zip_) +
           " Report=" + Utf8FromWide(report_);
  }
  std::string Stable(const char* size, const char* report) const {
    return "Stage: Native output stable | Path=" + Utf8FromWide(zip_) + " Size=" + size +
           " ReportExists=" + report;
  }

  ScriptedCalls calls_;
  std::wstring zip_;
  std::wstring report_;
  std::wstring result_;
};

TEST_F(NativeWaitTest, CompleteArchiveIsReportedAfterThreeSleeps) {
  PutFile(zip_, "12345");
  PutFile(report_, "");
  PutFile(result_, "a result of an earlier run");
  EXPECT_EQ(Wait(), 0);
  EXPECT_EQ(calls_.Waited(), 1500U);
  EXPECT_EQ(FileBytes(result_), "OK\r\n5");
  EXPECT_THAT(Log(), ElementsAre(Waiting(), Stable("5", "yes")));
}

TEST_F(NativeWaitTest, AMissingReportChangesOnlyTheLog) {
  PutFile(zip_, "12345");
  EXPECT_EQ(Wait(), 0);
  EXPECT_EQ(FileBytes(result_), "OK\r\n5");
  EXPECT_THAT(Log(), ElementsAre(Waiting(), Stable("5", "no")));
}

TEST_F(NativeWaitTest, AFolderIsNoReport) {
  PutFile(zip_, "12345");
  report_ = Scratch(L"");
  EXPECT_EQ(Wait(), 0);
  EXPECT_THAT(Log(), ElementsAre(Waiting(), Stable("5", "no")));
}

TEST_F(NativeWaitTest, ResultThatCannotBeWrittenChangesNothing) {
  PutFile(zip_, "12345");
  result_ = Scratch(L"missing\\wait.txt");
  EXPECT_EQ(Wait(), 0);
  EXPECT_THAT(Log(), ElementsAre(Waiting(), Stable("5", "no")));
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
