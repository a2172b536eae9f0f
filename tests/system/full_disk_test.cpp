// Each mode on a full disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"
#include "tests/support/export/finalize_fixture_win32.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/machine/moved_profile_win32.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/machine/shell_folder_override_win32.h"
#include "tests/support/machine/small_disk_win32.h"
#include "tests/support/machine/unix_link_win32.h"

namespace kestrune {
namespace {

using ::testing::StartsWith;

class FullDiskTest : public FinalizeFixture {
 protected:
  /// Fills the disk with an archive of an earlier export on it, and writes another one as the host.
  void PutArchives(const SmallDisk& disk, const std::wstring& former, std::size_t former_size,
                   std::size_t size) {
    PutFile(former, std::string(former_size, 'f'));
    EXPECT_TRUE(disk.Fill());
    native_bytes_.assign(size, 'z');
    PutFile(native_, native_bytes_);
  }

  /// Prepares a board of 100,000 bytes with this status file.
  RunOutcome Prepare(const std::wstring& status) const {
    PutFile(Scratch(L"Main.PcbDoc"), std::string(100'000, 'b'));
    PutFile(Scratch(L"layers.txt"), "");
    PutFile(JoinPath(folders_.runtime, L"Bridge.OutJob"), SmallOutputJob());
    return RunKestrune(L"--prepare " + Quoted(Scratch(L"Main.PcbDoc")) + L" none " +
                       Quoted(Scratch(L"layers.txt")) + L" " + Quoted(status));
  }
};

TEST_F(FullDiskTest, FormerArchiveIsKeptDefaultFolderUsed) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  const std::wstring former = JoinPath(disk.Folder(), L"Main.zip");
  PutArchives(disk, former, 50'000, 100'000);
  Settings(L"[Export]\nDirectory=" + disk.Folder() + L"\n");
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"97 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(FileBytes(former), std::string(50'000, 'f'));
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
}

TEST_F(FullDiskTest, DefaultFolderWithoutSpaceIsAnError) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  const MovedProfile moved(disk.Folder());
  const std::wstring destination = disk.Folder() + L"\\AppData\\Local\\Kestrune\\ODBpp\\Main.zip";
  PutArchives(disk, destination, 50'000, 100'000);
  EXPECT_TRUE(
      EndsWithBox(4, NotOverwritten(destination, ERROR_DISK_FULL), MB_ICONERROR, Finalize()));
  EXPECT_EQ(FileBytes(destination), std::string(50'000, 'f'));
  ExpectClipboardUntouched();
  native_bytes_.assign(20'000, 'z');
  PutFile(native_, native_bytes_);
  EXPECT_TRUE(EndsWithBox(0, Delivered(destination, L"19 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(FileBytes(destination), native_bytes_);
}

TEST_F(FullDiskTest, TemporaryRootOnFullDiskFailsPreparation) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  const ShellFolderOverride moved(HKEY_LOCAL_MACHINE, L"Common Documents", disk.Folder());
  ASSERT_TRUE(TryCreateDirectories(JoinPath(disk.Folder(), L"Kestrune\\Temp")));
  ASSERT_TRUE(disk.Fill());
  EXPECT_TRUE(EndsSilentlyWith(4, Prepare(Scratch(L"status.txt"))));
  EXPECT_EQ(FileBytes(Scratch(L"status.txt")), "ERROR\r\n");
  EXPECT_FALSE(Exists(JoinPath(disk.Folder(), L"Kestrune\\Temp\\ready.txt")));
  EXPECT_EQ(Log().back(), Entry(L"Prepare failed",
                                L"Error=copy GetLastError=112 Path=" + Scratch(L"Main.PcbDoc")));
}

TEST_F(FullDiskTest, UnwritableStatusOrResultIsNoSuccess) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  ASSERT_TRUE(disk.Fill());
  EXPECT_TRUE(EndsSilentlyWith(10, Prepare(JoinPath(disk.Folder(), L"status.txt"))));
  EXPECT_FALSE(Exists(JoinPath(disk.Folder(), L"status.txt")));
  EXPECT_TRUE(EndsSilentlyWith(0, RunKestrune(L"--wait-native " + Quoted(native_) + L" none " +
                                              Quoted(JoinPath(disk.Folder(), L"result.txt")))));
  EXPECT_THAT(Log().back(), StartsWith("Stage: Native output stable | "));
}

class FullDiskInstallTest : public InstallTest {};

TEST_F(FullDiskInstallTest, ProfileIsUnchanged) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  const BoxInstance used = UsedHost(1, 24);
  MadeInstance host = MakeHost(used);
  // The disk of the program's own folder has space, that of the host's profile has none.
  const std::wstring roaming = Scratch(L"user\\AppData\\Roaming");
  ASSERT_TRUE(TryCreateDirectories(std::wstring(ParentPath(roaming))));
  ASSERT_TRUE(MakeDirectoryLink(roaming, disk.Folder()));
  const MovedProfile moved(Scratch(L"user"));
  MoveHost(host, roaming);
  ASSERT_TRUE(disk.Fill());
  const RunOutcome outcome = Run(L"--install");
  EXPECT_TRUE(EndsWithBox(
      40,
      Transacted(host, L"FAILED: Backup RCS (Win32 112) Rollback complete (or no owned writes)."),
      MB_ICONWARNING, outcome));
  EXPECT_EQ(FileBytes(host.rcs), used.rcs);
  EXPECT_TRUE(HasNothingOfOurs(host));
  EXPECT_EQ(ReadAsHost(host).projects, used.projects);
  RemoveLink(roaming);
}

TEST_F(FullDiskInstallTest, WithoutSpaceForRuntimeProfilesAreUnchanged) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  const BoxInstance used = UsedHost(1, 24);
  MadeInstance host = MakeHost(used);
  const MovedProfile moved(disk.Folder());
  MoveHost(host, disk.Folder() + L"\\AppData\\Roaming");
  ASSERT_TRUE(disk.Fill());
  EXPECT_TRUE(EndsWithBox(40, Failed(host, L"Runtime deployment failed; profile unchanged."),
                          MB_ICONWARNING, Run(L"--install")));
  EXPECT_EQ(FileBytes(host.rcs), used.rcs);
  EXPECT_TRUE(HasNothingOfOurs(host));
}

}  // namespace
}  // namespace kestrune
