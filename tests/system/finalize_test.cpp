// `--finalize` and `--finalize-auto` through the executable: destination, copy, clipboard, message.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/finalize_fixture_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::StartsWith;

TEST_F(FinalizeTest, ArchiveIsDeliveredAndOnTheClipboard) {
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  EXPECT_EQ(FileBytes(native_), native_bytes_);
  EXPECT_THAT(NamesIn(folders_.default_export), ElementsAre(L"Main.zip"));
  ExpectOnClipboard(default_destination_);
  EXPECT_THAT(
      Log(),
      ElementsAre(Entry(L"Finalize begin", L"SourcePCB=" + board_ + L" NativeOutput=" + native_ +
                                               L" Destination=" + default_destination_),
                  Entry(L"Using default export directory", folders_.default_export),
                  Entry(L"Finalize copied", L"Destination=" + default_destination_ + L" Size=13")));
}

TEST_F(FinalizeTest, NewExportOfBoardReplacesFormerArchive) {
  PutFile(default_destination_, "a former export that was longer than the new one");
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, Finalize()));
}

TEST_F(FinalizeTest, NameIsTheBoardsWithoutExtension) {
  struct Row {
    const wchar_t* board;
    const wchar_t* name;
  };
  for (const Row& row :
       {Row{L"C:\\x\\Main.v2.PcbDoc", L"Main.v2.zip"}, Row{L"D:/y/Board", L"Board.zip"},
        Row{L".PcbDoc", L".PcbDoc.zip"}, Row{L"Two words.PCBDOC", L"Two words.zip"},
        Row{L"C:\\плата\\Ä плата.PcbDoc", L"Ä плата.zip"}}) {
    const std::wstring destination = JoinPath(folders_.default_export, row.name);
    EXPECT_TRUE(EndsWithBox(0, Delivered(destination, L"0 KB"), MB_ICONINFORMATION,
                            FinalizeBoard(row.board)));
    EXPECT_TRUE(Exists(destination));
    ExpectOnClipboard(destination);
  }
}

TEST_F(FinalizeTest, SizeIsInKilobytesOrSixDigits) {
  struct Row {
    std::uint64_t size;
    const wchar_t* shown;
  };
  for (const Row& row : {Row{1, L"0 KB"}, Row{1023, L"0 KB"}, Row{1024, L"1 KB"},
                         Row{1048575, L"1023 KB"}, Row{1048576, L"1 MB"}, Row{1572864, L"1.5 MB"},
                         Row{12345678, L"11.7738 MB"}, Row{104857601, L"100 MB"}}) {
    PutSparseFile(native_, row.size, "P");
    EXPECT_TRUE(
        EndsWithBox(0, Delivered(default_destination_, row.shown), MB_ICONINFORMATION, Finalize()));
    EXPECT_EQ(Log().back(), Entry(L"Finalize copied", L"Destination=" + default_destination_ +
                                                          L" Size=" + std::to_wstring(row.size)));
  }
}

TEST_F(FinalizeTest, AnArchiveAboveFourGibibytesIsDelivered) {
  KESTRUNE_NEEDS_TIME();
  ULARGE_INTEGER room = {};
  ASSERT_TRUE(GetDiskFreeSpaceExW(Scratch(L"").c_str(), &room, nullptr, nullptr));
  if (room.QuadPart < (8ULL << 30U)) {
    GTEST_SKIP() << "needs 8 GiB of room";
  }
  PutSparseFile(native_, (4ULL << 30U) + 10);
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"4096 MB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(Log().back(), Entry(L"Finalize copied",
                                L"Destination=" + default_destination_ + L" Size=4294967306"));
  EXPECT_TRUE(DeleteFileW(default_destination_.c_str()));
}

class FailureTest : public FinalizeTest {
 protected:
  void ExpectFailed(bool native_exists) {
    EXPECT_TRUE(EndsWithBox(4, SeeLog(), MB_ICONERROR, Finalize()));
    const std::vector<std::string> log = Log();
    ASSERT_FALSE(log.empty());
    EXPECT_THAT(log.back(),
                StartsWith(Entry(L"Finalize failed",
                                 std::wstring(L"NativeExists=") + (native_exists ? L"yes" : L"no") +
                                     L" NativeOutput=" + native_ + L" GetLastError=")));
    const std::size_t digits = log.back().rfind('=') + 1;
    EXPECT_EQ(log.back().find_first_not_of("0123456789", digits), std::string::npos);
    EXPECT_LT(digits, log.back().size());
    ExpectClipboardUntouched();
  }
};

TEST_F(FailureTest, MissingArchiveFailsAfterMakingTheFolder) {
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  ExpectFailed(false);
  EXPECT_TRUE(Exists(folders_.default_export));
  EXPECT_TRUE(NamesIn(folders_.default_export).empty());
}

TEST_F(FailureTest, AnEmptyArchiveFailsAlthoughItExists) {
  PutFile(native_, "");
  ExpectFailed(true);
}

TEST_F(FailureTest, FolderInPlaceOfArchiveFails) {
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  ASSERT_TRUE(CreateDirectoryW(native_.c_str(), nullptr));
  EXPECT_TRUE(EndsWithBox(4, SeeLog(), MB_ICONERROR, Finalize()));
  EXPECT_THAT(Log().back(), StartsWith("Stage: Finalize failed | NativeExists="));
}

TEST_F(FailureTest, ExportFolderThatCannotBeMadeFails) {
  PutFile(folders_.default_export, "a file");
  ExpectFailed(true);
  EXPECT_EQ(FileBytes(folders_.default_export), "a file");
}

TEST_F(FailureTest, DefaultFolderIsAlwaysMade) {
  PutFile(folders_.default_export, "a file");
  const std::wstring out = Scratch(L"out");
  ASSERT_TRUE(CreateDirectoryW(out.c_str(), nullptr));
  Settings(L"[Export]\nDirectory=" + out + L"\n");
  ExpectFailed(true);
  EXPECT_TRUE(NamesIn(out).empty());
}

TEST_F(FinalizeTest, OpenDestinationIsNamedWithTheReason) {
  PutFile(default_destination_, "open elsewhere");
  {
    const FileHandle open = HoldOpen(default_destination_, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_TRUE(EndsWithBox(4,
                            L"Cannot overwrite the destination ZIP.\n\n" + default_destination_ +
                                L"\n\n" + SystemText(ERROR_SHARING_VIOLATION),
                            MB_ICONERROR, Finalize()));
  }
  EXPECT_EQ(FileBytes(default_destination_), "open elsewhere");
  EXPECT_EQ(Log().back(), Entry(L"Finalize failed",
                                L"NativeExists=yes NativeOutput=" + native_ + L" GetLastError=32"));
  ExpectClipboardUntouched();
}

TEST_F(FinalizeTest, ArchiveHeldExclusivelyCannotBeCopied) {
  const FileHandle open = HoldOpen(native_, GENERIC_READ | GENERIC_WRITE, 0);
  EXPECT_TRUE(EndsWithBox(4,
                          L"Cannot overwrite the destination ZIP.\n\n" + default_destination_ +
                              L"\n\n" + SystemText(ERROR_SHARING_VIOLATION),
                          MB_ICONERROR, Finalize()));
}

TEST_F(FinalizeTest, CopyOntoItselfFailsAndArchiveSurvives) {
  native_ = default_destination_;
  PutFile(native_, native_bytes_);
  const RunOutcome outcome = Finalize();
  EXPECT_EQ(outcome.code, 4);
  ASSERT_EQ(outcome.boxes.size(), 1U);
  EXPECT_TRUE(outcome.boxes[0].text.starts_with(L"Cannot overwrite the destination ZIP.\n\n"));
  EXPECT_EQ(FileBytes(native_), native_bytes_);
}

TEST_F(FinalizeTest, FolderOfDestinationsNameCannotBeOverwritten) {
  PutFile(JoinPath(default_destination_, L"inside.txt"), "kept");
  const RunOutcome outcome = Finalize();
  EXPECT_EQ(outcome.code, 4);
  ASSERT_EQ(outcome.boxes.size(), 1U);
  EXPECT_TRUE(outcome.boxes[0].text.starts_with(L"Cannot overwrite the destination ZIP.\n\n" +
                                                default_destination_ + L"\n\n"));
  EXPECT_EQ(FileBytes(JoinPath(default_destination_, L"inside.txt")), "kept");
}

TEST_F(FinalizeTest, OpenClipboardIsAWarning) {
  const std::wstring marker = Scratch(L"holding");
  ProgramRun holder(TestProgramPath(L"clipboard_reader"), L"--hold " + Quoted(marker) + L" 120000");
  while (!Exists(marker) && !holder.WaitForExit(10)) {
  }
  ASSERT_TRUE(Exists(marker));
  EXPECT_TRUE(EndsWithBox(3,
                          L"ODB++ export successful.\n\nZIP:\n" + default_destination_ +
                              L"\n\nSize: 0 KB\n\nWarning: Cannot open the Windows Clipboard.",
                          MB_ICONINFORMATION, Finalize()));
  ASSERT_TRUE(DeleteFileW(marker.c_str()));
  EXPECT_EQ(holder.WaitForExit(60'000), 0);
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  ExpectClipboardUntouched();
}

TEST_F(FinalizeTest, AnotherProcessReadsBothFormats) {
  ASSERT_EQ(Finalize().code, 0);
  const std::wstring record = Scratch(L"clipboard.txt");
  ProgramRun reader(TestProgramPath(L"clipboard_reader"), Quoted(record));
  ASSERT_EQ(reader.WaitForExit(60'000), 0);
  const std::size_t length = default_destination_.size();
  const std::string path = Utf8FromWide(default_destination_);
  EXPECT_EQ(FileBytes(record),
            "DropHeader=20,0,0,0,1\nDropSize=" + std::to_string(2 * length + 24) + "\nDrop=" +
                path + "\nTextSize=" + std::to_string(2 * length + 2) + "\nText=" + path + "\n");
}

TEST_F(FinalizeTest, PathsBeyondTheClassicLimitAreDelivered) {
  std::wstring folder = Scratch(L"long");
  while (folder.size() < 400) {
    folder += L"\\" + std::wstring(60, L'x');
  }
  native_ = folder + L"\\Bridge.zip";
  PutFile(native_, native_bytes_);
  const std::wstring out = folder + L"\\out";
  ASSERT_TRUE(CreateDirectoryW((L"\\\\?\\" + out).c_str(), nullptr));
  Settings(L"[Export]\nDirectory=" + out + L"\n");
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(out + L"\\Main.zip", L"0 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(FileBytes(out + L"\\Main.zip"), native_bytes_);
  ExpectOnClipboard(out + L"\\Main.zip");
}

class ConfiguredDirectoryTest : public FinalizeTest {
 protected:
  void SetUp() override {
    FinalizeTest::SetUp();
    out_ = Scratch(L"out");
    ASSERT_TRUE(CreateDirectoryW(out_.c_str(), nullptr));
  }

  std::string BeginEntry(const std::wstring& destination) const {
    return Entry(L"Finalize begin", L"SourcePCB=" + board_ + L" NativeOutput=" + native_ +
                                        L" Destination=" + destination);
  }
  static std::string CopiedEntry(const std::wstring& destination) {
    return Entry(L"Finalize copied", L"Destination=" + destination + L" Size=13");
  }

  std::wstring out_;
};

TEST_F(ConfiguredDirectoryTest, ConfiguredFolderReceivesTheArchive) {
  Settings(L"[Export]\nDirectory=" + out_ + L"\n");
  const std::wstring destination = JoinPath(out_, L"Main.zip");
  EXPECT_TRUE(EndsWithBox(0, Delivered(destination, L"0 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_THAT(NamesIn(out_), ElementsAre(L"Main.zip"));
  EXPECT_TRUE(Exists(folders_.default_export));
  EXPECT_TRUE(NamesIn(folders_.default_export).empty());
  ExpectOnClipboard(destination);
  EXPECT_THAT(Log(), ElementsAre(Entry(L"Configured export directory", out_),
                                 Entry(L"Using configured export directory", out_),
                                 BeginEntry(destination), CopiedEntry(destination)));
}

TEST_F(ConfiguredDirectoryTest, VariablesAreExpandedInAFullPath) {
  ASSERT_TRUE(SetEnvironmentVariableW(L"KESTRUNE_TEST_OUT", out_.c_str()));
  Settings(L"[Export]\nDirectory=%KESTRUNE_TEST_OUT%\\sub\\..\n");
  const std::wstring destination = JoinPath(out_, L"Main.zip");
  ASSERT_TRUE(CreateDirectoryW(JoinPath(out_, L"sub").c_str(), nullptr));
  EXPECT_TRUE(EndsWithBox(0, Delivered(destination, L"0 KB"), MB_ICONINFORMATION, Finalize()));
  SetEnvironmentVariableW(L"KESTRUNE_TEST_OUT", nullptr);
  EXPECT_EQ(Log()[0], Entry(L"Configured export directory", L"%KESTRUNE_TEST_OUT%\\sub\\.."));
  EXPECT_EQ(Log()[1], Entry(L"Using configured export directory", out_));
}

TEST_F(ConfiguredDirectoryTest, UnusableFolderIsReplacedByTheDefault) {
  PutFile(Scratch(L"file"), "a file");
  for (const std::wstring& directory :
       {Scratch(L"nowhere"), Scratch(L"file"), std::wstring(L"Q:\\out"),
        std::wstring(L"%KESTRUNE_NOT_DEFINED%\\x"), std::wstring(L"C:\\a|b")}) {
    ASSERT_TRUE(DeleteFileW(folders_.log.c_str()) || GetLastError() != ERROR_SHARING_VIOLATION);
    Settings(L"[Export]\nDirectory=" + directory + L"\n");
    EXPECT_TRUE(
        EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, Finalize()));
    EXPECT_THAT(Log(),
                ElementsAre(Entry(L"Configured export directory", directory),
                            Entry(L"Configured export directory unavailable", directory),
                            BeginEntry(default_destination_),
                            Entry(L"Using default export directory", folders_.default_export),
                            CopiedEntry(default_destination_)));
    EXPECT_FALSE(Exists(Scratch(L"nowhere")));
  }
}

TEST_F(ConfiguredDirectoryTest, FailedCopyGoesToTheDefaultFolder) {
  Settings(L"[Export]\nDirectory=" + out_ + L"\n");
  const std::wstring destination = JoinPath(out_, L"Main.zip");
  PutFile(destination, "open elsewhere");
  {
    const FileHandle open = HoldOpen(destination, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_TRUE(
        EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, Finalize()));
  }
  EXPECT_EQ(FileBytes(destination), "open elsewhere");
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  ExpectOnClipboard(default_destination_);
  EXPECT_THAT(
      Log(),
      ElementsAre(Entry(L"Configured export directory", out_),
                  Entry(L"Using configured export directory", out_), BeginEntry(destination),
                  Entry(L"Configured export copy failed",
                        L"Path=" + destination + L" Error=" + SystemText(ERROR_SHARING_VIOLATION)),
                  Entry(L"Using default export directory", folders_.default_export),
                  CopiedEntry(default_destination_)));
}

TEST_F(ConfiguredDirectoryTest, WhenBothCopiesFailLastIsNamed) {
  Settings(L"[Export]\nDirectory=" + out_ + L"\n");
  const std::wstring destination = JoinPath(out_, L"Main.zip");
  PutFile(destination, "open elsewhere");
  PutFile(default_destination_, "open as well");
  {
    const FileHandle open = HoldOpen(destination, GENERIC_READ, FILE_SHARE_READ);
    const FileHandle other = HoldOpen(default_destination_, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_TRUE(EndsWithBox(4,
                            L"Cannot overwrite the destination ZIP.\n\n" + default_destination_ +
                                L"\n\n" + SystemText(ERROR_SHARING_VIOLATION),
                            MB_ICONERROR, Finalize()));
  }
  EXPECT_EQ(Log().back(), Entry(L"Finalize failed",
                                L"NativeExists=yes NativeOutput=" + native_ + L" GetLastError=32"));
  EXPECT_EQ(FileBytes(destination), "open elsewhere");
  EXPECT_EQ(FileBytes(default_destination_), "open as well");
}

class FinalizeAutoTest : public FinalizeTest {
 protected:
  RunOutcome FinalizeAuto(const std::wstring& more = {}) const {
    return RunKestrune(L"--finalize-auto " + Quoted(board_) + more);
  }
};

TEST_F(FinalizeAutoTest, ArchiveIsFoundBelowTemporaryRoot) {
  PutFile(folders_.native_zip, "found");
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, FinalizeAuto()));
  EXPECT_EQ(FileBytes(default_destination_), "found");
  EXPECT_EQ(FileBytes(folders_.native_zip), "found");
  EXPECT_EQ(Log().front(), Entry(L"Finalize begin", L"SourcePCB=" + board_ + L" NativeOutput=" +
                                                        folders_.native_zip + L" Destination=" +
                                                        default_destination_));
}

TEST_F(FinalizeAutoTest, ABadSpacingIsNoError) {
  PutFile(folders_.native_zip, "found");
  for (const wchar_t* space : {L" 12x", L" -5", L" 0", L" x", L" \"\"", L" \"5 \"", L" 50000"}) {
    EXPECT_TRUE(EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION,
                            FinalizeAuto(space)))
        << ::testing::PrintToString(space);
  }
}

TEST_F(FinalizeAutoTest, WithoutAnArchiveTheExportFails) {
  EXPECT_TRUE(EndsWithBox(4, SeeLog(), MB_ICONERROR, FinalizeAuto()));
  EXPECT_THAT(Log().back(),
              StartsWith(Entry(L"Finalize failed", L"NativeExists=no NativeOutput=" +
                                                       folders_.native_zip + L" GetLastError=")));
}

}  // namespace
}  // namespace kestrune
