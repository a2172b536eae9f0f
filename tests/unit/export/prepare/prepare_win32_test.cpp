#include "export/prepare/prepare_win32.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "common/text/text_win32.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/export/prepare_fixture_win32.h"
#include "tests/support/export/refused_call_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/unix_link_win32.h"
#include "tests/support/scripted_calls_win32.h"
#include "tests/support/machine/unknown_folders_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kInside[] =
    L"Cannot export the Bridge temporary PCB or an embedded board from its temporary folder. Open "
    L"the original PCB project, not Bridge.PcbDoc from Recent.";
constexpr wchar_t kMissing[] =
    L"A source PCB or embedded board is missing. Temporary files were not removed.";

const std::string kHead =
    "[Design]\r\nVersion=1.0\r\nHierarchyMode=0\r\n\r\n"
    "[Document1]\r\nDocumentPath=Bridge.PcbDoc\r\nAnnotationEnabled=1\r\n"
    "DocumentUniqueId=BRDGPCB1\r\n\r\n";

std::string DependencyLines(const std::string& number, const std::string& name) {
  return "[Document" + number + "]\r\nDocumentPath=" + name +
         "\r\nAnnotationEnabled=1\r\nDocumentUniqueId=BRDGDEP" + number + "\r\n\r\n";
}

std::string OutputJobLines(const std::string& number) {
  return "[Document" + number +
         "]\r\nDocumentPath=Bridge.OutJob\r\nAnnotationEnabled=0\r\nDocumentUniqueId=BRDGOUT1\r\n";
}

class PreparationTest : public PrepareFixture {
 protected:
  int Prepare() { return PrepareTemporaryProject(calls_, {board_, list_, manifest_, {}}); }

  void ExpectWholeProject() const {
    EXPECT_THAT(NamesIn(folders_.temporary),
                ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc", L"Bridge.PrjPcb", L"ready.txt"));
  }

  /// Expects a rejection that leaves the temporary root as the last export left it.
  void ExpectRejected(const std::wstring& text) {
    PutFile(InTemporary(L"Bridge.PcbDoc"), "the last export");
    EXPECT_EQ(Prepare(), 9) << Utf8FromWide(board_);
    EXPECT_EQ(Log().back(), Entry(L"Prepare rejected", text)) << Utf8FromWide(board_);
    EXPECT_THAT(NamesIn(folders_.temporary), ElementsAre(L"Bridge.PcbDoc"));
    EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), "the last export");
  }

  /// Expects a failure after the root was emptied: no ready.txt, and this as last log entry.
  void ExpectIncomplete(int code, const std::string& entry) {
    EXPECT_EQ(Prepare(), code);
    EXPECT_EQ(Log().back(), entry);
    EXPECT_FALSE(Exists(InTemporary(L"ready.txt")));
  }
  std::string Failed(const std::wstring& error, const std::wstring& path) const {
    return Entry(L"Prepare failed", L"Error=" + error + L" Path=" + path);
  }

  ScriptedCalls calls_;
};

TEST_F(PreparationTest, BuildsTheProjectInANewFolder) {
  ASSERT_FALSE(Exists(folders_.temporary));
  EXPECT_EQ(Prepare(), 0);
  ExpectWholeProject();
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PrjPcb")), kHead + OutputJobLines("2"));
  EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), Utf8FromWide(board_));
  EXPECT_EQ(FileBytes(board_), board_bytes_);
  EXPECT_EQ(FileBytes(output_job_), SmallOutputJob());
}

TEST_F(PreparationTest, EveryStepIsLoggedInOrder) {
  ASSERT_EQ(Prepare(), 0);
  const auto changed = [](const wchar_t* field) { return Entry(L"ODB plot field changed", field); };
  EXPECT_THAT(
      Log(), ElementsAre(BeginEntry(0), Entry(L"ODB used layers", L"Manifest=" + manifest_),
                         changed(L"AddToAllPlots_V7_1=False"), changed(L"Plot_V7_1=True"),
                         changed(L"Plot_V7_2=False"), changed(L"Plot_V7_3=False"),
                         changed(L"PlotBottomLayerPlot=True"),
                         changed(L"PlotBottomPastePlot=False"), changed(L"PlotMidLayer1Plot=False"),
                         changed(L"PlotTopLayerPlot=True"), changed(L"PlotTopOverlayPlot=False"),
                         Entry(L"Prepare complete",
                               L"Project=" + InTemporary(L"Bridge.PrjPcb") + L" OutJob=" +
                                   InTemporary(L"Bridge.OutJob") + L" Dependencies=0")));
}

TEST_F(PreparationTest, DependenciesAreNumberedBeforeTheOutputJob) {
  const std::wstring panel = PutScratch(L"z\\P\u00E4nel.PcbDoc", "panel");
  const std::wstring coupon = PutScratch(L"a\\Coupon.PcbDoc", "coupon");
  Depend({panel, Scratch(L"Z\\P\u00C4NEL.pcbdoc"), coupon, Scratch(L"x\\..\\a\\Coupon.PcbDoc")});
  EXPECT_EQ(Prepare(), 0);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PrjPcb")),
            kHead + DependencyLines("2", "P\xE4nel.PcbDoc") +
                DependencyLines("3", "Coupon.PcbDoc") + OutputJobLines("4"));
  EXPECT_EQ(FileBytes(InTemporary(L"P\u00E4nel.PcbDoc")), "panel");
  EXPECT_EQ(FileBytes(InTemporary(L"Coupon.PcbDoc")), "coupon");
  const std::vector<std::string> log = Log();
  ASSERT_GE(log.size(), 4U);
  EXPECT_EQ(log.front(), BeginEntry(2));
  EXPECT_EQ(log[log.size() - 3],
            Entry(L"Prepare dependency",
                  L"Source=" + panel + L" Copy=" + InTemporary(L"P\u00E4nel.PcbDoc")));
  EXPECT_EQ(log[log.size() - 2], Entry(L"Prepare dependency", L"Source=" + coupon + L" Copy=" +
                                                                  InTemporary(L"Coupon.PcbDoc")));
  EXPECT_TRUE(log.back().ends_with(" Dependencies=2"));
}

TEST_F(PreparationTest, UnreadableListIsEmpty) {
  ASSERT_TRUE(DeleteFileW(list_.c_str()));
  EXPECT_EQ(Prepare(), 0);
  ASSERT_TRUE(CreateDirectoryW(list_.c_str(), nullptr));
  EXPECT_EQ(Prepare(), 0);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PrjPcb")), kHead + OutputJobLines("2"));
}

TEST_F(PreparationTest, RelativeSourceIsKeptForTheScript) {
  wchar_t directory[MAX_PATH + 1] = {};
  GetCurrentDirectoryW(MAX_PATH, directory);
  ASSERT_TRUE(SetCurrentDirectoryW(Scratch(L"").c_str()));
  board_ = L".\\x\\..\\Main.PcbDoc";
  EXPECT_EQ(Prepare(), 0);
  ASSERT_TRUE(SetCurrentDirectoryW(directory));
  EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), ".\\x\\..\\Main.PcbDoc");
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
}

TEST_F(PreparationTest, BoardOutsideCodePageIsPrepared) {
  board_ = PutScratch(L"\u043F\u043B\u0430\u0442\u0430.PcbDoc", "cyrillic");
  EXPECT_EQ(Prepare(), 0);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), "cyrillic");
  EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), AnsiFromWideLossy(board_));
}

TEST_F(PreparationTest, PathsMayExceedTheClassicLimit) {
  const std::wstring folder = Scratch(std::wstring(200, L'x') + L"\\" + std::wstring(200, L'y'));
  board_ = JoinPath(folder, L"Main.PcbDoc");
  PutFile(board_, "far away");
  PutFile(JoinPath(folder, L"Panel.PcbDoc"), "far too");
  Depend({JoinPath(folder, L"Panel.PcbDoc")});
  EXPECT_EQ(Prepare(), 0);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), "far away");
  EXPECT_EQ(FileBytes(InTemporary(L"Panel.PcbDoc")), "far too");
}

TEST_F(PreparationTest, InvalidDependencyLineIsAMissingBoard) {
  PutFile(list_, std::string(40'000, 'x') + "\r\n");
  EXPECT_EQ(Prepare(), 9);
  EXPECT_FALSE(Exists(folders_.temporary));
}

TEST_F(PreparationTest, SourceInTheTemporaryRootIsRejected) {
  std::wstring upper = InTemporary(L"Bridge.PcbDoc");
  CharUpperW(upper.data());
  std::wstring slashes = InTemporary(L"Bridge.PcbDoc");
  std::ranges::replace(slashes, L'\\', L'/');
  for (const std::wstring& board :
       {std::wstring(), InTemporary(L"Bridge.PcbDoc"), upper, slashes, folders_.temporary,
        InTemporary(L"deep\\er\\Board.PcbDoc"), InTemporary(L"..\\temp\\Bridge.PcbDoc"),
        L"\\\\?\\" + InTemporary(L"Bridge.PcbDoc")}) {
    board_ = board;
    ExpectRejected(kInside);
  }
}

TEST_F(PreparationTest, DependencyInTheTemporaryRootIsRejected) {
  Depend({InTemporary(L"Bridge.PcbDoc")});
  ExpectRejected(kInside);
}

TEST_F(PreparationTest, SimilarlyNamedFolderIsOutside) {
  board_ = folders_.temporary + L"2\\Board.PcbDoc";
  PutFile(board_, "outside");
  EXPECT_EQ(Prepare(), 0);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), "outside");
}

TEST_F(PreparationTest, WhatIsNoRegularFileIsMissing) {
  ASSERT_TRUE(CreateDirectoryW(Scratch(L"folder.PcbDoc").c_str(), nullptr));
  const std::wstring board = board_;
  for (const std::wstring& missing :
       {Scratch(L"none.PcbDoc"), Scratch(L"no folder\\none.PcbDoc"),
        std::wstring(L"Q:\\none.PcbDoc"), Scratch(L"folder.PcbDoc")}) {
    board_ = missing;
    Depend({});
    ExpectRejected(kMissing);
    board_ = board;
    Depend({missing});
    ExpectRejected(kMissing);
  }
}

TEST_F(PreparationTest, SourceIsCheckedBeforeDependencies) {
  Depend({InTemporary(L"Bridge.PcbDoc")});
  board_ = Scratch(L"none.PcbDoc");
  ExpectRejected(kMissing);
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
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
}

TEST_F(PreparationTest, RootLinkIsRemovedWithoutItsTarget) {
  const std::wstring victim = Scratch(L"victim");
  PutFile(JoinPath(victim, L"file"), "precious");
  ASSERT_TRUE(TryCreateDirectories(std::wstring(ParentPath(folders_.temporary))));
  KESTRUNE_NEEDS_LINK(MakeDirectoryLink(folders_.temporary, victim));
  const int code = Prepare();
  EXPECT_EQ(FileBytes(JoinPath(victim, L"file")), "precious");
  EXPECT_THAT(NamesIn(victim), ElementsAre(L"file"));
  EXPECT_TRUE(code == 0 || (code == 4 && RunsUnderWine())) << code;
  RemoveLink(folders_.temporary);
}

TEST_F(PreparationTest, PendingRootIsCreatedAgain) {
  int refusals = 19;
  calls_.before = [&](const SystemCall& call) {
    return call.name == "MakeDirectory" && call.path.ends_with(L"\\Temp") && refusals-- > 0
               ? std::optional<DWORD>(ERROR_ACCESS_DENIED)
               : std::nullopt;
  };
  EXPECT_EQ(Prepare(), 0);
  EXPECT_EQ(calls_.Waited(), 950U);
  ExpectWholeProject();
  refusals = 20;
  ExpectIncomplete(4, Failed(L"create_directories GetLastError=5", folders_.temporary));
}

/// Makes the real calls, but with the final paths that a test sets: of Temp, and of all other
/// files.
class AliasedPaths final : public SystemCalls {
 public:
  HANDLE Create(const ExtendedPath& path, const FileOpening& opening) override {
    is_root_ = path.Name() == L"Temp";
    return SystemCalls::Create(path, opening);
  }
  DWORD GetFinalPath(HANDLE, wchar_t* path, DWORD size, DWORD) override {
    const std::wstring& text = is_root_ ? root : source;
    if (text.size() >= size) {
      return static_cast<DWORD>(text.size() + 1);
    }
    std::ranges::copy(text, path);
    return static_cast<DWORD>(text.size());
  }

  std::wstring root = L"\\\\?\\X:\\Temp";
  std::wstring source;

 private:
  bool is_root_ = false;
};

TEST_F(PreparationTest, FinalPathInTheRootIsRejected) {
  ASSERT_EQ(Prepare(), 0);
  AliasedPaths calls;
  for (const std::size_t length : {1U, 240U, 241U, 250U, 300U}) {
    calls.source = L"\\\\?\\x:\\temp\\" + std::wstring(length, L'b') + L".PcbDoc";
    EXPECT_EQ(PrepareTemporaryProject(calls, {board_, list_, manifest_, {}}), 9) << length;
    EXPECT_EQ(Log().back(), Entry(L"Prepare rejected", kInside));
  }
  calls.source = L"\\\\?\\X:\\Temp2\\b.PcbDoc";
  EXPECT_EQ(PrepareTemporaryProject(calls, {board_, list_, manifest_, {}}), 0);
  calls.root.clear();
  EXPECT_EQ(PrepareTemporaryProject(calls, {board_, list_, manifest_, {}}), 0);
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
  calls_.before = RefusedCall("GetAttributes", board_, ERROR_NETNAME_DELETED);
  ExpectRejected(L"Cannot validate source PCB paths. Temporary files were not removed.");
}

TEST_F(PreparationTest, ListAboveMemoryFailsFirst) {
  ASSERT_EQ(Prepare(), 0);
  PutSparseFile(list_, std::uint64_t{5} << 30);
  EXPECT_EQ(Prepare(), 4);
  EXPECT_EQ(Log().back(), Entry(L"Prepare failed", L"Error=Not enough memory. GetLastError=8"));
  EXPECT_TRUE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(PreparationTest, SourceReachedThroughLinkIsStillInside) {
  ASSERT_EQ(Prepare(), 0);
  const std::wstring link = Scratch(L"link");
  KESTRUNE_NEEDS_LINK(MakeDirectoryLink(link, folders_.temporary));
  board_ = JoinPath(link, L"Bridge.PcbDoc");
  const int code = Prepare();
  RemoveLink(link);
  if (code != 9 && RunsUnderWine()) {
    GTEST_SKIP() << "Wine does not resolve links in final paths; the code was " << code;
  }
  EXPECT_EQ(code, 9);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
}

/// Any local user can replace the product's folder with a link.
TEST_F(PreparationTest, LinkAboveTemporaryRootIsRefused) {
  const std::wstring victim = Scratch(L"victim");
  const std::wstring product(ParentPath(folders_.temporary));
  PutFile(JoinPath(victim, L"Temp\\file"), "precious");
  ASSERT_TRUE(TryCreateDirectories(std::wstring(ParentPath(product))));
  KESTRUNE_NEEDS_LINK(MakeDirectoryLink(product, victim));
  const int code = Prepare();
  RemoveLink(product);
  EXPECT_EQ(code, 4);
  EXPECT_EQ(FileBytes(JoinPath(victim, L"Temp\\file")), "precious");
  EXPECT_THAT(NamesIn(JoinPath(victim, L"Temp")), ElementsAre(L"file"));
  EXPECT_EQ(Log().back(), Failed(L"The folder is a link GetLastError=4395", product));
}

TEST_F(PreparationTest, OldProjectIsRemovedFirst) {
  PutFile(folders_.native_zip, "old");
  PutFile(InTemporary(L"deep\\er\\locked.txt"), "old");
  ASSERT_TRUE(SetFileAttributesW(InTemporary(L"deep\\er\\locked.txt").c_str(),
                                 FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
  ASSERT_TRUE(SetFileAttributesW(InTemporary(L"deep\\er").c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(Prepare(), 0);
  ExpectWholeProject();
}

TEST_F(PreparationTest, FileAsTemporaryRootIsReplaced) {
  PutFile(folders_.temporary, "no folder");
  EXPECT_EQ(Prepare(), 0);
  EXPECT_TRUE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(PreparationTest, RootInUseStaysComplete) {
  ASSERT_EQ(Prepare(), 0);
  const FileHandle held(CreateFileW(folders_.temporary.c_str(), FILE_TRAVERSE | SYNCHRONIZE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  ASSERT_TRUE(held);
  EXPECT_EQ(Prepare(), 4);
  EXPECT_EQ(Log().back(), Failed(L"remove GetLastError=32", folders_.temporary));
  ExpectWholeProject();
}

TEST_F(PreparationTest, OldFileInUseHasItsCode) {
  PutFile(InTemporary(L"old.txt"), "old");
  const FileHandle held = HoldOpen(InTemporary(L"old.txt"), GENERIC_READ, FILE_SHARE_READ);
  ExpectIncomplete(4, Failed(L"remove GetLastError=32", InTemporary(L"old.txt")));
}

TEST_F(PreparationTest, FailedCopyNamesSourceAndCode) {
  {
    const FileHandle held = HoldOpen(board_, GENERIC_READ, 0);
    ExpectIncomplete(4, Failed(L"copy GetLastError=32", board_));
  }
  ASSERT_TRUE(DeleteFileW(output_job_.c_str()));
  ExpectIncomplete(4, Failed(L"copy GetLastError=2", output_job_));
  EXPECT_THAT(NamesIn(folders_.temporary), ElementsAre(L"Bridge.PcbDoc"));
}

TEST_F(PreparationTest, FailedLayerSelectionHasItsCode) {
  PutFile(output_job_, "no configuration");
  ExpectIncomplete(8, Entry(L"Prepare layer selection failed",
                            L"Manifest=" + manifest_ +
                                L" Error=The ODB configuration was not found in the temporary "
                                L"OutJob."));
  EXPECT_EQ(Log().size(), 2U);
  EXPECT_THAT(NamesIn(folders_.temporary), ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc"));
}

TEST_F(PreparationTest, DependencyThatDisappearsHasItsCode) {
  const std::wstring panel = PutScratch(L"Panel.PcbDoc", "panel");
  Depend({panel});
  calls_.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    if (call.name == "Copy") {
      DeleteFileW(panel.c_str());
    }
    return std::nullopt;
  };
  ExpectIncomplete(6, Entry(L"Prepare missing dependency", panel));
}

TEST_F(PreparationTest, EqualNamesCollideAfterTheFirstCopy) {
  const std::wstring second = PutScratch(L"b\\panel.pcbdoc", "second");
  Depend({PutScratch(L"a\\Panel.PcbDoc", "first"), second});
  ExpectIncomplete(7, Entry(L"Prepare dependency name collision", second));
  EXPECT_EQ(FileBytes(InTemporary(L"Panel.PcbDoc")), "first");
}

TEST_F(PreparationTest, NamesOfTheProjectCollideWithoutDamage) {
  for (const wchar_t* name : {L"bridge.pcbdoc", L"Bridge.OutJob", L"BRIDGE.PRJPCB", L"READY.txt"}) {
    const std::wstring embedded = PutScratch(name, "embedded");
    Depend({embedded});
    ExpectIncomplete(7, Entry(L"Prepare dependency name collision", embedded));
    EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
    EXPECT_NE(FileBytes(InTemporary(L"Bridge.OutJob")), "embedded");
  }
}

TEST_F(PreparationTest, ShortNameOfReservedFileIsCollision) {
  ASSERT_EQ(Prepare(), 0);
  wchar_t name[MAX_PATH] = {};
  ASSERT_NE(GetShortPathNameW(InTemporary(L"Bridge.PcbDoc").c_str(), name, MAX_PATH), 0U);
  if (FileName(name) == L"Bridge.PcbDoc") {
    GTEST_SKIP() << "this disk has no short names";
  }
  Depend({PutScratch(FileName(name), "embedded")});
  EXPECT_EQ(Prepare(), 7);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
}

TEST_F(PreparationTest, AnEmbeddedBoardReplacesNothing) {
  Depend({PutScratch(L"Panel.PcbDoc", "embedded")});
  calls_.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    if (call.name == "Copy" && call.other.ends_with(L"\\Panel.PcbDoc")) {
      PutFile(InTemporary(L"Panel.PcbDoc"), "another program's");
    }
    return std::nullopt;
  };
  EXPECT_EQ(Prepare(), 7);
  EXPECT_EQ(FileBytes(InTemporary(L"Panel.PcbDoc")), "another program's");
}

TEST_F(PreparationTest, CopiesOfReadOnlyFilesAreWritable) {
  const std::wstring embedded = PutScratch(L"Embedded.PcbDoc", "embedded");
  Depend({embedded});
  for (const std::wstring& path : {board_, embedded, output_job_}) {
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
  }
  EXPECT_EQ(Prepare(), 0);
  for (const wchar_t* name : {L"Bridge.PcbDoc", L"Embedded.PcbDoc", L"Bridge.OutJob"}) {
    EXPECT_EQ(GetFileAttributesW(InTemporary(name).c_str()) & FILE_ATTRIBUTE_READONLY, 0U) << name;
  }
  EXPECT_NE(GetFileAttributesW(board_.c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
  EXPECT_EQ(Prepare(), 0) << "and again";
}

TEST_F(PreparationTest, ListHasNoLimitOfItsOwn) {
  PutFile(list_, std::string(std::size_t{65} << 20, '\n') +
                     Utf8FromWide(PutScratch(L"Panel.PcbDoc", "panel")));
  EXPECT_EQ(Prepare(), 0);
  EXPECT_EQ(FileBytes(InTemporary(L"Panel.PcbDoc")), "panel");
}

TEST_F(PreparationTest, NameOutsideCodePageFailsBeforeCopies) {
  if (GetACP() == CP_UTF8) {
    GTEST_SKIP() << "the code page of this system holds every character";
  }
  const std::wstring embedded = PutScratch(L"\u4E00\u0E01.PcbDoc", "embedded");
  PutFile(list_, Utf16WithMark(PutScratch(L"First.PcbDoc", "first") + L"\r\n" + embedded));
  ExpectIncomplete(4, Failed(L"Cannot finish temporary project GetLastError=1113", embedded));
  EXPECT_FALSE(Exists(InTemporary(L"First.PcbDoc")));
}

}  // namespace
}  // namespace kestrune
