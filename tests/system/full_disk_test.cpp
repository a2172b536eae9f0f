// What a full disk does to each mode.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "common/path.h"
#include "common/text.h"
#include "tests/support/finalize_fixture_win32.h"
#include "tests/support/output_job_reader.h"
#include "tests/support/small_disk_win32.h"

#define NEEDS_FULL_DISK(disk)  \
  if ((disk).Folder().empty()) \
  GTEST_SKIP() << "needs the small disk that tools/wine mounts in its own Wine root only"

namespace kestrune {
namespace {

using ::testing::StartsWith;

class FullDiskTest : public FinalizeTest {};

TEST_F(FullDiskTest, AnExportFolderOnAFullDiskIsReplacedByTheDefaultOne) {
  const FullDisk disk;
  NEEDS_FULL_DISK(disk);
  native_bytes_.assign(100'000, 'z');
  PutFile(native_, native_bytes_);
  Settings(L"[Export]\nDirectory=" + disk.Folder() + L"\n");
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"97 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  EXPECT_EQ(FileBytes(native_), native_bytes_);
  bool copy_failed = false;
  for (const std::string& entry : Log()) {
    copy_failed = copy_failed ||
                  entry.starts_with("Stage: Configured export copy failed | Path=") ||
                  entry.starts_with("Stage: Configured export directory unavailable | ");
  }
  EXPECT_TRUE(copy_failed);
}

TEST_F(FullDiskTest, AStatusThatNoLongerFitsEndsWithTen) {
  const FullDisk disk;
  NEEDS_FULL_DISK(disk);
  const std::wstring board = Scratch(L"Main.PcbDoc");
  const std::wstring status = JoinPath(disk.Folder(), L"status.txt");
  PutFile(board, "board");
  PutFile(Scratch(L"layers.txt"), "");
  PutFile(JoinPath(folders_.runtime, L"Bridge.OutJob"), SmallOutputJob());
  EXPECT_TRUE(
      EndsSilentlyWith(10, RunKestrune(L"--prepare " + Quoted(board) + L" none " +
                                       Quoted(Scratch(L"layers.txt")) + L" " + Quoted(status))));
  EXPECT_FALSE(Exists(status));
  EXPECT_EQ(Log().back(), "Stage: Prepare status failed | Cannot publish completion result");
}

TEST_F(FullDiskTest, AResultThatNoLongerFitsChangesNeitherCodeNorLog) {
  const FullDisk disk;
  NEEDS_FULL_DISK(disk);
  const std::wstring result = JoinPath(disk.Folder(), L"result.txt");
  EXPECT_TRUE(EndsSilentlyWith(
      0, RunKestrune(L"--wait-native " + Quoted(native_) + L" none " + Quoted(result))));
  EXPECT_THAT(Log().back(), StartsWith("Stage: Native output stable | "));
}

}  // namespace
}  // namespace kestrune
