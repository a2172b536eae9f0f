#include "export/prepare/prepare_status_win32.h"

#include <gmock/gmock.h>

#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/export/refused_call_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;

class PrepareStatusTest : public ExportTest {
 protected:
  int Publish(int code) { return PublishPrepareStatus(calls_, {{}, {}, {}, status_}, code); }

  void ExpectUnpublished() {
    EXPECT_EQ(Publish(0), 10);
    EXPECT_EQ(Publish(9), 10);
    EXPECT_EQ(Log().back(), Entry(L"Prepare status failed", L"Cannot publish completion result"));
  }

  ScriptedCalls calls_;
  std::wstring status_ = Scratch(L"done.txt");
};

TEST_F(PrepareStatusTest, SuccessIsOkOthersAreError) {
  EXPECT_EQ(Publish(0), 0);
  EXPECT_EQ(FileBytes(status_), "OK\r\n");
  status_ = Scratch(L"second.txt");
  EXPECT_EQ(Publish(6), 6);
  EXPECT_EQ(FileBytes(status_), "ERROR\r\n");
  EXPECT_THAT(NamesIn(Scratch(L"")), ElementsAre(L"done.txt", L"second.txt"));
}

TEST_F(PrepareStatusTest, WithoutPathNothingIsWritten) {
  EXPECT_EQ(PublishPrepareStatus(calls_, {{}, {}, {}, std::nullopt}, 4), 4);
  EXPECT_TRUE(NamesIn(Scratch(L"")).empty());
}

TEST_F(PrepareStatusTest, ExistingStatusFileIsKept) {
  PutFile(status_, "of another run");
  ExpectUnpublished();
  EXPECT_EQ(FileBytes(status_), "of another run");
  EXPECT_EQ(FileBytes(status_ + L".tmp"), "ERROR\r\n");
}

TEST_F(PrepareStatusTest, StaleTemporaryFileIsOverwrittenAndShared) {
  PutFile(status_ + L".tmp", "a long leftover of an earlier run");
  const FileHandle open = HoldOpen(status_ + L".tmp", GENERIC_READ | GENERIC_WRITE,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  EXPECT_EQ(Publish(0), 0);
  EXPECT_EQ(FileBytes(status_), "OK\r\n");
}

TEST_F(PrepareStatusTest, UnwritableStatusEndsWithTen) {
  calls_.before = RefusedCall("Write", L"done.txt.tmp", ERROR_DISK_FULL);
  ExpectUnpublished();
  EXPECT_FALSE(Exists(status_));
  status_ = Scratch(L"nowhere\\done.txt");
  ExpectUnpublished();
  EXPECT_FALSE(Exists(Scratch(L"nowhere")));
}

TEST_F(PrepareStatusTest, EmptyPathEndsWithTen) {
  status_.clear();
  ExpectUnpublished();
  EXPECT_TRUE(DeleteFileW(L".tmp"));
}

}  // namespace
}  // namespace kestrune
