#include "export/prepare/prepare_win32.h"

#include <gmock/gmock.h>

#include <thread>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/unix_link_win32.h"
#include "tests/support/scripted_calls_win32.h"
#include "tests/support/machine/unknown_folders_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kRecentFile[] =
    "Stage: Prepare rejected | Cannot export the Bridge temporary PCB or an embedded board from "
    "its temporary folder. Open the original PCB project, not Bridge.PcbDoc from Recent.";

/// A board, a deployed output job and a manifest: what a preparation needs to succeed.
class PreparationTest : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    board_ = Scratch(L"Main.PcbDoc");
    list_ = Scratch(L"list.txt");
    manifest_ = Scratch(L"layers.txt");
    if (!IsSkipped()) {
      PutFile(board_, "board");
      PutFile(manifest_, "");
      PutFile(JoinPath(folders_.runtime, L"Bridge.OutJob"), "Configuration1_Item1=a\r\n");
    }
  }

  int Prepare() { return PrepareTemporaryProject(calls_, {board_, list_, manifest_, {}}); }

  std::wstring Temporary(std::wstring_view name) const {
    return JoinPath(folders_.temporary, name);
  }

  std::wstring board_;
  std::wstring list_;
  std::wstring manifest_;
  ScriptedCalls calls_;
};

TEST_F(PreparationTest, BuildsTheProjectInANewFolder) {
  ASSERT_FALSE(Exists(folders_.temporary));
  EXPECT_EQ(Prepare(), 0);
  EXPECT_THAT(NamesIn(folders_.temporary),
              ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc", L"Bridge.PrjPcb", L"ready.txt"));
}

TEST_F(PreparationTest, RelativeSourceIsKeptForTheScript) {
  wchar_t directory[MAX_PATH + 1] = {};
  GetCurrentDirectoryW(MAX_PATH, directory);
  ASSERT_TRUE(SetCurrentDirectoryW(Scratch(L"").c_str()));
  board_ = L"Main.PcbDoc";
  EXPECT_EQ(Prepare(), 0);
  ASSERT_TRUE(SetCurrentDirectoryW(directory));
  EXPECT_EQ(FileBytes(Temporary(L"ready.txt")), "Main.PcbDoc");
}

TEST_F(PreparationTest, InvalidDependencyLineIsAMissingBoard) {
  PutFile(list_, std::string(40'000, 'x') + "\r\n");
  EXPECT_EQ(Prepare(), 9);
  EXPECT_FALSE(Exists(folders_.temporary));
}

TEST_F(PreparationTest, UnnormalisedSourceIsStillInside) {
  ASSERT_EQ(Prepare(), 0);
  PutFile(Temporary(L"Bridge.PcbDoc"), "the last export");
  board_ = L"\\\\?\\" + Temporary(L"Bridge.PcbDoc");
  EXPECT_EQ(Prepare(), 9);
  EXPECT_EQ(Log().back(), kRecentFile);
  EXPECT_EQ(FileBytes(Temporary(L"Bridge.PcbDoc")), "the last export");
}

TEST_F(PreparationTest, SourceOnSubstitutedDriveIsStillInside) {
  ASSERT_EQ(Prepare(), 0);
  const std::wstring parent(ParentPath(folders_.temporary));
  if (!DefineDosDeviceW(0, L"T:", parent.c_str())) {
    GTEST_SKIP() << "no drive can be substituted here";
  }
  board_ = L"T:\\Temp\\Bridge.PcbDoc";
  const bool visible = Exists(board_);
  const int code = visible ? Prepare() : 9;
  ASSERT_TRUE(DefineDosDeviceW(DDD_REMOVE_DEFINITION, L"T:", nullptr));
  if (!visible) {
    GTEST_SKIP() << "the substituted drive shows nothing";
  }
  EXPECT_EQ(code, 9);
  EXPECT_EQ(FileBytes(Temporary(L"Bridge.PcbDoc")), "board");
}

TEST_F(PreparationTest, SourceReachedThroughLinkIsStillInside) {
  ASSERT_EQ(Prepare(), 0);
  const std::wstring link = Scratch(L"link");
  if (!MakeDirectoryLink(link, folders_.temporary)) {
    GTEST_SKIP() << "this system offers the test no way to make a link";
  }
  board_ = JoinPath(link, L"Bridge.PcbDoc");
  const int code = Prepare();
  RemoveLink(link);
  if (code != 9 && RunsUnderWine()) {
    GTEST_SKIP() << "Wine does not resolve links in final paths; the code was " << code;
  }
  EXPECT_EQ(code, 9);
  EXPECT_EQ(FileBytes(Temporary(L"Bridge.PcbDoc")), "board");
}

TEST_F(PreparationTest, RootLinkIsRemovedWithoutItsTarget) {
  const std::wstring victim = Scratch(L"victim");
  PutFile(JoinPath(victim, L"file"), "precious");
  ASSERT_TRUE(TryCreateDirectories(std::wstring(ParentPath(folders_.temporary))));
  if (!MakeDirectoryLink(folders_.temporary, victim)) {
    GTEST_SKIP() << "this system offers the test no way to make a link";
  }
  const int code = Prepare();
  EXPECT_EQ(FileBytes(JoinPath(victim, L"file")), "precious");
  EXPECT_THAT(NamesIn(victim), ElementsAre(L"file"));
  EXPECT_TRUE(code == 0 || (code == 4 && RunsUnderWine())) << code;
  RemoveLink(folders_.temporary);
}

/// Where Windows keeps the name of a removed folder until it is closed, this waits; Wine frees it.
TEST_F(PreparationTest, PendingRootIsCreatedAgain) {
  ASSERT_EQ(Prepare(), 0);
  FileHandle held(CreateFileW(folders_.temporary.c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  ASSERT_TRUE(held);
  std::thread holder([&] {
    Sleep(300);
    held.Reset();
  });
  const int code = Prepare();
  holder.join();
  EXPECT_EQ(code, 0);
  EXPECT_THAT(NamesIn(folders_.temporary),
              ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc", L"Bridge.PrjPcb", L"ready.txt"));
}

TEST_F(PreparationTest, WithoutLocalDataItEndsWithTwo) {
  UnknownFolders folders;
  EXPECT_EQ(PrepareTemporaryProject(folders, {board_, list_, manifest_, {}}), 2);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(PreparationTest, WithoutPublicDocumentsItEndsWithThree) {
  UnknownFolders folders;
  folders.listed_profile = L"C:\\profile";
  EXPECT_EQ(PrepareTemporaryProject(folders, {board_, list_, manifest_, {}}), 3);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(PreparationTest, SourceWithUnknownStatusIsRejected) {
  ASSERT_EQ(Prepare(), 0);
  const UnreadableFile source(Scratch(L"loop.PcbDoc"));
  if (!source.Works()) {
    GTEST_SKIP() << "the system has no file at hand whose presence cannot be asked";
  }
  board_ = Scratch(L"loop.PcbDoc");
  EXPECT_EQ(Prepare(), 9);
  EXPECT_EQ(Log().back(),
            "Stage: Prepare rejected | Cannot validate source PCB paths. Temporary files were not "
            "removed.");
  EXPECT_TRUE(Exists(Temporary(L"ready.txt")));
}

TEST_F(PreparationTest, ListHasNoLimitOfItsOwn) {
  PutFile(Scratch(L"Panel.PcbDoc"), "panel");
  PutFile(list_, std::string(std::size_t{65} << 20, '\n') + Utf8FromWide(Scratch(L"Panel.PcbDoc")));
  EXPECT_EQ(Prepare(), 0);
  EXPECT_EQ(FileBytes(Temporary(L"Panel.PcbDoc")), "panel");
}

TEST_F(PreparationTest, ListAboveMemoryFailsFirst) {
  ASSERT_EQ(Prepare(), 0);
  PutSparseFile(list_, std::uint64_t{5} << 30);
  EXPECT_EQ(Prepare(), 4);
  EXPECT_EQ(Log().back(), "Stage: Prepare failed | Error=Not enough memory. GetLastError=8");
  EXPECT_TRUE(Exists(Temporary(L"ready.txt")));
}

/// Every local user may make a link in the place of the product's folder.
TEST_F(PreparationTest, LinkAboveTemporaryRootIsRefused) {
  const std::wstring victim = Scratch(L"victim");
  const std::wstring product(ParentPath(folders_.temporary));
  PutFile(JoinPath(victim, L"Temp\\file"), "precious");
  ASSERT_TRUE(TryCreateDirectories(std::wstring(ParentPath(product))));
  if (!MakeDirectoryLink(product, victim)) {
    GTEST_SKIP() << "this system offers the test no way to make a link";
  }
  const int code = Prepare();
  RemoveLink(product);
  EXPECT_EQ(code, 4);
  EXPECT_EQ(FileBytes(JoinPath(victim, L"Temp\\file")), "precious");
  EXPECT_THAT(NamesIn(JoinPath(victim, L"Temp")), ElementsAre(L"file"));
  EXPECT_EQ(Log().back(),
            "Stage: Prepare failed | Error=A link is in the place of a folder GetLastError=4395 "
            "Path=" +
                Utf8FromWide(product));
}

TEST_F(PreparationTest, RootInUseStaysComplete) {
  ASSERT_EQ(Prepare(), 0);
  const FileHandle held(CreateFileW(folders_.temporary.c_str(), FILE_TRAVERSE | SYNCHRONIZE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  ASSERT_TRUE(held);
  EXPECT_EQ(Prepare(), 4);
  EXPECT_EQ(Log().back(), "Stage: Prepare failed | Error=remove GetLastError=32 Path=" +
                              Utf8FromWide(folders_.temporary));
  EXPECT_THAT(NamesIn(folders_.temporary),
              ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc", L"Bridge.PrjPcb", L"ready.txt"));
}

TEST_F(PreparationTest, ShortNameOfReservedFileIsCollision) {
  ASSERT_EQ(Prepare(), 0);
  wchar_t name[MAX_PATH] = {};
  ASSERT_NE(GetShortPathNameW(Temporary(L"Bridge.PcbDoc").c_str(), name, MAX_PATH), 0U);
  const std::wstring embedded = Scratch(FileName(name));
  if (FileName(name) == L"Bridge.PcbDoc") {
    GTEST_SKIP() << "this disk has no short names";
  }
  PutFile(embedded, "embedded");
  PutFile(list_, Utf8FromWide(embedded) + "\r\n");
  EXPECT_EQ(Prepare(), 7);
  EXPECT_EQ(FileBytes(Temporary(L"Bridge.PcbDoc")), "board");
}

TEST_F(PreparationTest, AnEmbeddedBoardReplacesNothing) {
  const std::wstring embedded = Scratch(L"Panel.PcbDoc");
  PutFile(embedded, "embedded");
  PutFile(list_, Utf8FromWide(embedded) + "\r\n");
  calls_.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    if (call.name == "Copy" && call.other.ends_with(L"\\Panel.PcbDoc")) {
      PutFile(Temporary(L"Panel.PcbDoc"), "somebody's");
    }
    return std::nullopt;
  };
  EXPECT_EQ(Prepare(), 7);
  EXPECT_EQ(FileBytes(Temporary(L"Panel.PcbDoc")), "somebody's");
}

TEST_F(PreparationTest, BoardNamedReadyCollides) {
  const std::wstring embedded = Scratch(L"READY.txt");
  PutFile(embedded, "embedded");
  PutFile(list_, Utf8FromWide(embedded) + "\r\n");
  EXPECT_EQ(Prepare(), 7);
  EXPECT_FALSE(Exists(Temporary(L"ready.txt")));
}

TEST_F(PreparationTest, FileAsTemporaryRootIsReplaced) {
  PutFile(folders_.temporary, "no folder");
  EXPECT_EQ(Prepare(), 0);
  EXPECT_TRUE(Exists(Temporary(L"ready.txt")));
}

TEST_F(PreparationTest, OldFileInUseHasItsCode) {
  ASSERT_EQ(Prepare(), 0);
  const FileHandle held = HoldOpen(Temporary(L"ready.txt"), GENERIC_READ, FILE_SHARE_READ);
  EXPECT_EQ(Prepare(), 4);
  EXPECT_EQ(Log().back(), "Stage: Prepare failed | Error=remove GetLastError=32 Path=" +
                              Utf8FromWide(Temporary(L"ready.txt")));
}

TEST_F(PreparationTest, FailedCopyIsLoggedWithItsCode) {
  const FileHandle held = HoldOpen(board_, GENERIC_READ, 0);
  EXPECT_EQ(Prepare(), 4);
  EXPECT_EQ(Log().back(),
            "Stage: Prepare failed | Error=copy GetLastError=32 Path=" + Utf8FromWide(board_));
}

TEST_F(PreparationTest, CopiesOfReadOnlyFilesAreWritable) {
  const std::wstring embedded = Scratch(L"Embedded.PcbDoc");
  PutFile(embedded, "embedded");
  PutFile(list_, Utf8FromWide(embedded) + "\r\n");
  const std::wstring out_job = JoinPath(folders_.runtime, L"Bridge.OutJob");
  for (const std::wstring& path : {board_, embedded, out_job}) {
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
  }
  EXPECT_EQ(Prepare(), 0);
  for (const wchar_t* name : {L"Bridge.PcbDoc", L"Embedded.PcbDoc", L"Bridge.OutJob"}) {
    EXPECT_EQ(GetFileAttributesW(Temporary(name).c_str()) & FILE_ATTRIBUTE_READONLY, 0U) << name;
  }
  EXPECT_EQ(Prepare(), 0) << "and again";
}

TEST_F(PreparationTest, ChangedFieldsAreLoggedInOrder) {
  PutFile(JoinPath(folders_.runtime, L"Bridge.OutJob"),
          "Configuration1_Item1=PlotBPlot=True|PlotAPlot=False|AddToAllPlots_\xC4=True\r\n");
  PutFile(manifest_, "PlotKey=PlotAPlot");
  EXPECT_EQ(Prepare(), 0);
  const std::vector<std::string> log = Log();
  ASSERT_GE(log.size(), 5U);
  EXPECT_THAT(log[0], StartsWith("Stage: Prepare begin | SourcePCB="));
  EXPECT_EQ(log[1], "Stage: ODB used layers | Manifest=" + Utf8FromWide(manifest_));
  EXPECT_EQ(log[2], "Stage: ODB plot field changed | PlotBPlot=False");
  EXPECT_EQ(log[3], "Stage: ODB plot field changed | PlotAPlot=True");
  EXPECT_THAT(log[4], StartsWith("Stage: ODB plot field changed | AddToAllPlots_"));
  EXPECT_THAT(log.back(), StartsWith("Stage: Prepare complete | Project="));
}

TEST_F(PreparationTest, NameOutsideCodePageFailsBeforeCopies) {
  if (GetACP() == CP_UTF8) {
    GTEST_SKIP() << "the code page of this system holds every character";
  }
  const std::wstring embedded = Scratch(L"\u4E00\u0E01.PcbDoc");
  PutFile(embedded, "embedded");
  PutFile(Scratch(L"First.PcbDoc"), "first");
  PutFile(list_, Utf16WithMark(Scratch(L"First.PcbDoc") + L"\r\n" + embedded));
  EXPECT_EQ(Prepare(), 4);
  EXPECT_EQ(
      Log().back(),
      "Stage: Prepare failed | Error=Cannot finish temporary project GetLastError=1113 Path=" +
          Utf8FromWide(embedded));
  EXPECT_FALSE(Exists(Temporary(L"First.PcbDoc")));
  EXPECT_FALSE(Exists(Temporary(L"\u4E00\u0E01.PcbDoc")));
  EXPECT_FALSE(Exists(Temporary(L"ready.txt")));
}

}  // namespace
}  // namespace kestrune
