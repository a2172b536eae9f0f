// `--prepare` through the executable: the temporary project, the log and the exit codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/text/path.h"
#include "common/text/text.h"
#include "common/text/text_win32.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/export/prepare_fixture_win32.h"
#include "tests/support/machine/unix_link_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr std::wstring_view kInsideText =
    L"Cannot export the Bridge temporary PCB or an embedded board from its temporary folder. Open "
    L"the original PCB project, not Bridge.PcbDoc from Recent.";
constexpr std::wstring_view kMissingText =
    L"A source PCB or embedded board is missing. Temporary files were not removed.";

const std::string kHead =
    "[Design]\r\nVersion=1.0\r\nHierarchyMode=0\r\n\r\n"
    "[Document1]\r\nDocumentPath=Bridge.PcbDoc\r\nAnnotationEnabled=1\r\n"
    "DocumentUniqueId=BRDGPCB1\r\n\r\n";

std::string DependencySection(int number, const std::string& name) {
  const std::string n = std::to_string(number);
  return "[Document" + n + "]\r\nDocumentPath=" + name +
         "\r\nAnnotationEnabled=1\r\nDocumentUniqueId=BRDGDEP" + n + "\r\n\r\n";
}

std::string OutputJobSection(int number) {
  return "[Document" + std::to_string(number) +
         "]\r\nDocumentPath=Bridge.OutJob\r\nAnnotationEnabled=0\r\nDocumentUniqueId=BRDGOUT1\r\n";
}

TEST_F(PrepareTest, BuildsTheWholeProjectAndNothingElse) {
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_THAT(NamesIn(folders_.temporary),
              ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc", L"Bridge.PrjPcb", L"ready.txt"));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PrjPcb")), kHead + OutputJobSection(2));
  EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), Utf8FromWide(board_));
  EXPECT_EQ(FileBytes(board_), board_bytes_);
  EXPECT_EQ(FileBytes(output_job_), SmallOutputJob());
}

TEST_F(PrepareTest, LogsEveryStepInOrder) {
  ASSERT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_THAT(
      Log(), ElementsAre(BeginEntry(board_, 0), Entry(L"ODB used layers", L"Manifest=" + manifest_),
                         Entry(L"ODB plot field changed", L"AddToAllPlots_V7_1=False"),
                         Entry(L"ODB plot field changed", L"Plot_V7_1=True"),
                         Entry(L"ODB plot field changed", L"Plot_V7_2=False"),
                         Entry(L"ODB plot field changed", L"Plot_V7_3=False"),
                         Entry(L"ODB plot field changed", L"PlotBottomLayerPlot=True"),
                         Entry(L"ODB plot field changed", L"PlotBottomPastePlot=False"),
                         Entry(L"ODB plot field changed", L"PlotMidLayer1Plot=False"),
                         Entry(L"ODB plot field changed", L"PlotTopLayerPlot=True"),
                         Entry(L"ODB plot field changed", L"PlotTopOverlayPlot=False"),
                         Entry(L"Prepare complete",
                               L"Project=" + InTemporary(L"Bridge.PrjPcb") + L" OutJob=" +
                                   InTemporary(L"Bridge.OutJob") + L" Dependencies=0")));
}

TEST_F(PrepareTest, DependenciesAreNumberedBeforeTheOutputJob) {
  const std::wstring panel = Scratch(L"z\\Panel.PcbDoc");
  const std::wstring coupon = Scratch(L"a\\Coupon.PcbDoc");
  PutFile(panel, "panel");
  PutFile(coupon, "coupon");
  Depend({panel, coupon});
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PrjPcb")), kHead + DependencySection(2, "Panel.PcbDoc") +
                                                          DependencySection(3, "Coupon.PcbDoc") +
                                                          OutputJobSection(4));
  EXPECT_EQ(FileBytes(InTemporary(L"Panel.PcbDoc")), "panel");
  EXPECT_EQ(FileBytes(InTemporary(L"Coupon.PcbDoc")), "coupon");
  const std::vector<std::string> log = Log();
  ASSERT_GE(log.size(), 4U);
  EXPECT_EQ(log.front(), BeginEntry(board_, 2));
  EXPECT_EQ(log[log.size() - 3], Entry(L"Prepare dependency", L"Source=" + panel + L" Copy=" +
                                                                  InTemporary(L"Panel.PcbDoc")));
  EXPECT_EQ(log[log.size() - 2], Entry(L"Prepare dependency", L"Source=" + coupon + L" Copy=" +
                                                                  InTemporary(L"Coupon.PcbDoc")));
  EXPECT_THAT(log.back(), StartsWith("Stage: Prepare complete | "));
  EXPECT_THAT(log.back(), HasSubstr(" Dependencies=2"));
}

TEST_F(PrepareTest, RepeatedDependencyIsUsedOnce) {
  const std::wstring panel = Scratch(L"Pänel.PcbDoc");
  PutFile(panel, "panel");
  Depend({panel, Scratch(L"PÄNEL.pcbdoc"), Scratch(L"other\\..\\Pänel.PcbDoc"), panel});
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PrjPcb")),
            kHead + DependencySection(2, "P\xE4nel.PcbDoc") + OutputJobSection(3));
  EXPECT_EQ(Log().front(), BeginEntry(board_, 1));
}

TEST_F(PrepareTest, EveryEncodingOfListReadsSame) {
  const std::wstring panel = Scratch(L"Pänel.PcbDoc");
  const std::wstring coupon = Scratch(L"Coupon.PcbDoc");
  PutFile(panel, "panel");
  PutFile(coupon, "coupon");
  const std::wstring text = panel + L"\r\n\r\n" + coupon;
  std::string ansi;
  ASSERT_TRUE(AnsiFromWide(text, ansi));
  for (const std::string& list :
       {ansi, ansi + "\n", "\xEF\xBB\xBF" + Utf8FromWide(text), Utf16WithMark(text + L"\r\n"),
        Utf16WithMark(panel + L"\n\n" + coupon)}) {
    PutFile(list_, list);
    EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
    EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PrjPcb")),
              kHead + DependencySection(2, "P\xE4nel.PcbDoc") +
                  DependencySection(3, "Coupon.PcbDoc") + OutputJobSection(4))
        << ::testing::PrintToString(list);
  }
}

TEST_F(PrepareTest, ListWithoutMarkIsAnsi) {
  const std::wstring panel = Scratch(L"Pänel.PcbDoc");
  PutFile(panel, "panel");
  PutFile(list_, Utf8FromWide(panel));
  EXPECT_TRUE(EndsSilentlyWith(9, Prepare()));
  EXPECT_EQ(Log().back(), Entry(L"Prepare rejected", kMissingText));
}

TEST_F(PrepareTest, UnreadableListIsEmpty) {
  ASSERT_TRUE(DeleteFileW(list_.c_str()));
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  ASSERT_TRUE(CreateDirectoryW(list_.c_str(), nullptr));
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PrjPcb")), kHead + OutputJobSection(2));
}

class RejectionTest : public PrepareTest {
 protected:
  void SetUp() override {
    PrepareTest::SetUp();
    PutFile(InTemporary(L"Bridge.PcbDoc"), "the last export's board");
    PutFile(InTemporary(L"ready.txt"), "the last export");
  }

  /// Expects a rejection with the text and an unchanged temporary root.
  void ExpectRejected(std::wstring_view text, const RunOutcome& outcome) {
    EXPECT_TRUE(EndsSilentlyWith(9, outcome));
    EXPECT_EQ(Log().back(), Entry(L"Prepare rejected", text));
    EXPECT_THAT(Log()[Log().size() - 2], StartsWith("Stage: Prepare begin | "));
    EXPECT_THAT(NamesIn(folders_.temporary), ElementsAre(L"Bridge.PcbDoc", L"ready.txt"));
    EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), "the last export's board");
    EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), "the last export");
  }
};

TEST_F(RejectionTest, AnEmptySourcePathIsRejected) {
  ExpectRejected(kInsideText, PrepareBoard(L""));
}

TEST_F(RejectionTest, SourceInTheTemporaryRootIsRejected) {
  std::wstring upper = InTemporary(L"Bridge.PcbDoc");
  CharUpperW(upper.data());
  std::wstring slashes = InTemporary(L"Bridge.PcbDoc");
  for (wchar_t& unit : slashes) {
    unit = unit == L'\\' ? L'/' : unit;
  }
  for (const std::wstring& board :
       {InTemporary(L"Bridge.PcbDoc"), upper, slashes, folders_.temporary,
        InTemporary(L"deep\\er\\Board.PcbDoc"), InTemporary(L"..\\temp\\Bridge.PcbDoc")}) {
    ExpectRejected(kInsideText, PrepareBoard(board));
  }
}

TEST_F(RejectionTest, SimilarlyNamedFolderIsOutside) {
  const std::wstring board = folders_.temporary + L"2\\Board.PcbDoc";
  PutFile(board, "outside");
  EXPECT_TRUE(EndsSilentlyWith(0, PrepareBoard(board)));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), "outside");
}

TEST_F(RejectionTest, DependencyInsideTemporaryRootIsRejected) {
  Depend({InTemporary(L"Bridge.PcbDoc")});
  ExpectRejected(kInsideText, Prepare());
}

TEST_F(RejectionTest, WhatIsNoRegularFileIsMissing) {
  ExpectRejected(kMissingText, PrepareBoard(Scratch(L"none.PcbDoc")));
  ExpectRejected(kMissingText, PrepareBoard(Scratch(L"no folder\\none.PcbDoc")));
  ExpectRejected(kMissingText, PrepareBoard(L"Q:\\none.PcbDoc"));
  ASSERT_TRUE(CreateDirectoryW(Scratch(L"folder.PcbDoc").c_str(), nullptr));
  ExpectRejected(kMissingText, PrepareBoard(Scratch(L"folder.PcbDoc")));
  Depend({Scratch(L"none.PcbDoc")});
  ExpectRejected(kMissingText, Prepare());
}

TEST_F(RejectionTest, SourceIsLookedAtBeforeDependencies) {
  Depend({InTemporary(L"Bridge.PcbDoc")});
  ExpectRejected(kMissingText, PrepareBoard(Scratch(L"none.PcbDoc")));
  Depend({Scratch(L"none.PcbDoc"), InTemporary(L"Bridge.PcbDoc")});
  ExpectRejected(kMissingText, Prepare());
}

TEST_F(PrepareTest, TheTemporaryRootIsEmptiedFirst) {
  PutFile(InTemporary(L"ready.txt"), "old");
  PutFile(InTemporary(L"Old.PcbDoc"), "old");
  PutFile(InTemporary(L"Project Outputs for Bridge\\ODB\\Bridge.zip"), "old");
  PutFile(InTemporary(L"deep\\er\\locked.txt"), "old");
  SetFileAttributesW(InTemporary(L"deep\\er\\locked.txt").c_str(),
                     FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  SetFileAttributesW(InTemporary(L"deep\\er").c_str(), FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_THAT(NamesIn(folders_.temporary),
              ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc", L"Bridge.PrjPcb", L"ready.txt"));
}

TEST_F(PrepareTest, TwoPreparationsInARowBothSucceed) {
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
}

TEST_F(PrepareTest, ReadOnlyBoardCanBeExportedAgain) {
  const std::wstring panel = Scratch(L"Panel.PcbDoc");
  PutFile(panel, "panel");
  Depend({panel});
  for (const std::wstring& path : {board_, panel, output_job_}) {
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
  }
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
    for (const wchar_t* name : {L"Bridge.PcbDoc", L"Bridge.OutJob", L"Panel.PcbDoc"}) {
      EXPECT_EQ(GetFileAttributesW(InTemporary(name).c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
    }
  }
  EXPECT_NE(GetFileAttributesW(board_.c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
}

TEST_F(PrepareTest, EmptyingNeverFollowsLinks) {
  const std::wstring victim = Scratch(L"victim");
  PutFile(JoinPath(victim, L"precious.txt"), "precious");
  PutFile(InTemporary(L"old.txt"), "old");
  if (!MakeDirectoryLink(InTemporary(L"link"), victim)) {
    RemoveLink(InTemporary(L"link"));
    GTEST_SKIP() << "no symbolic link can be made here";
  }
  const RunOutcome outcome = Prepare();
  EXPECT_TRUE(outcome.code == 0 || outcome.code == 4) << outcome.code;
  EXPECT_EQ(FileBytes(JoinPath(victim, L"precious.txt")), "precious");
  RemoveLink(InTemporary(L"link"));
}

TEST_F(PrepareTest, OpenFileInTheRootFailsPreparation) {
  PutFile(InTemporary(L"held.txt"), "held");
  const FileHandle held = HoldOpen(InTemporary(L"held.txt"), GENERIC_READ, FILE_SHARE_READ);
  EXPECT_TRUE(EndsSilentlyWith(4, Prepare()));
  EXPECT_THAT(Log().back(), StartsWith("Stage: Prepare failed | Error="));
  EXPECT_THAT(Log().back(), ::testing::EndsWith(" GetLastError=32 Path=" +
                                                Utf8FromWide(InTemporary(L"held.txt"))));
  EXPECT_FALSE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(PrepareTest, WithoutDeployedOutputJobPreparationFails) {
  ASSERT_TRUE(DeleteFileW(output_job_.c_str()));
  EXPECT_TRUE(EndsSilentlyWith(4, Prepare()));
  EXPECT_THAT(Log().back(), StartsWith("Stage: Prepare failed | Error="));
  EXPECT_THAT(Log().back(),
              ::testing::EndsWith(" GetLastError=2 Path=" + Utf8FromWide(output_job_)));
  EXPECT_THAT(NamesIn(folders_.temporary), ElementsAre(L"Bridge.PcbDoc"));
}

TEST_F(PrepareTest, BoardThatAnotherProgramLockedFailsPreparation) {
  const FileHandle locked = HoldOpen(board_, GENERIC_READ, 0);
  EXPECT_TRUE(EndsSilentlyWith(4, Prepare()));
  EXPECT_THAT(Log().back(), StartsWith("Stage: Prepare failed | Error="));
  EXPECT_THAT(Log().back(), ::testing::EndsWith(" GetLastError=32 Path=" + Utf8FromWide(board_)));
  EXPECT_FALSE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(PrepareTest, EqualNamesCollideAfterTheFirstCopy) {
  const std::wstring first = Scratch(L"a\\Board.PcbDoc");
  const std::wstring second = Scratch(L"b\\board.pcbdoc");
  PutFile(first, "first");
  PutFile(second, "second");
  Depend({first, second});
  EXPECT_TRUE(EndsSilentlyWith(7, Prepare()));
  EXPECT_EQ(Log().back(), Entry(L"Prepare dependency name collision", second));
  EXPECT_EQ(FileBytes(InTemporary(L"Board.PcbDoc")), "first");
  EXPECT_FALSE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(PrepareTest, UmlautsCollideIgnoringCase) {
  PutFile(Scratch(L"a\\Ärger.PcbDoc"), "first");
  PutFile(Scratch(L"b\\ärger.PcbDoc"), "second");
  Depend({Scratch(L"a\\Ärger.PcbDoc"), Scratch(L"b\\ärger.PcbDoc")});
  EXPECT_TRUE(EndsSilentlyWith(7, Prepare()));
}

TEST_F(PrepareTest, BridgeFileNameCollidesWithoutDamage) {
  for (const wchar_t* name : {L"bridge.pcbdoc", L"Bridge.OutJob", L"BRIDGE.PRJPCB"}) {
    const std::wstring dependency = Scratch(L"twin\\" + std::wstring(name));
    PutFile(dependency, "twin");
    Depend({dependency});
    EXPECT_TRUE(EndsSilentlyWith(7, Prepare()));
    EXPECT_EQ(Log().back(), Entry(L"Prepare dependency name collision", dependency));
    EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
    EXPECT_NE(FileBytes(InTemporary(L"Bridge.OutJob")), "twin");
  }
}

TEST_F(PrepareTest, MissingDependencyIsReported) {
  // A large board keeps the program copying while the dependency is deleted.
  const std::wstring panel = Scratch(L"Panel.PcbDoc");
  PutFile(panel, "panel");
  PutSparseFile(board_, 768ULL << 20U);
  Depend({panel});
  ProgramRun run(KestrunePath(),
                 L"--prepare " + Quoted(board_) + L" " + Quoted(list_) + L" " + Quoted(manifest_));
  const ULONGLONG begin = GetTickCount64();
  while (!Exists(InTemporary(L"Bridge.PcbDoc")) && GetTickCount64() - begin < 20'000) {
    Sleep(1);
  }
  ASSERT_TRUE(DeleteFileW(panel.c_str()));
  EXPECT_TRUE(EndsSilentlyWith(6, Finish(std::move(run), 60'000)));
  EXPECT_EQ(Log().back(), Entry(L"Prepare missing dependency", panel));
  EXPECT_FALSE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(PrepareTest, ReadyHoldsTheSourcePathAsGiven) {
  ProgramRun run(KestrunePath(),
                 L"--prepare .\\x\\..\\Main.PcbDoc " + Quoted(list_) + L" " + Quoted(manifest_),
                 Scratch(L""));
  EXPECT_TRUE(EndsSilentlyWith(0, Finish(std::move(run))));
  EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), ".\\x\\..\\Main.PcbDoc");
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
}

TEST_F(PrepareTest, BoardOutsideTheCodePageIsPrepared) {
  const std::wstring board = Scratch(L"плата.PcbDoc");
  PutFile(board, "cyrillic");
  EXPECT_TRUE(EndsSilentlyWith(0, PrepareBoard(board)));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), "cyrillic");
  EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), AnsiFromWideLossy(board));
  EXPECT_EQ(Log().front(), BeginEntry(board, 0));
}

TEST_F(PrepareTest, DependencyOutsideTheCodePageFails) {
  const std::wstring panel = Scratch(L"панель.PcbDoc");
  PutFile(panel, "panel");
  PutFile(list_, Utf16WithMark(panel));
  EXPECT_TRUE(EndsSilentlyWith(4, Prepare()));
  EXPECT_THAT(Log().back(),
              StartsWith("Stage: Prepare failed | Error=Cannot finish temporary project "
                         "GetLastError="));
  EXPECT_FALSE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(PrepareTest, PathsBeyondTheClassicLimitArePrepared) {
  std::wstring folder = Scratch(L"long");
  while (folder.size() < 400) {
    folder += L"\\" + std::wstring(60, L'x');
  }
  const std::wstring board = folder + L"\\Main.PcbDoc";
  const std::wstring panel = folder + L"\\Panel.PcbDoc";
  PutFile(board, "far away");
  PutFile(panel, "far too");
  Depend({panel});
  EXPECT_TRUE(EndsSilentlyWith(0, PrepareBoard(board)));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), "far away");
  EXPECT_EQ(FileBytes(InTemporary(L"Panel.PcbDoc")), "far too");
  EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), Utf8FromWide(board));
}

TEST_F(PrepareTest, MissingManifestFailsAndLeavesNoProject) {
  ASSERT_TRUE(DeleteFileW(manifest_.c_str()));
  EXPECT_TRUE(EndsSilentlyWith(8, Prepare()));
  EXPECT_THAT(Log(),
              ElementsAre(BeginEntry(board_, 0),
                          Entry(L"Prepare layer selection failed",
                                L"Manifest=" + manifest_ +
                                    L" Error=Cannot read the used-layer manifest: " + manifest_)));
  EXPECT_THAT(NamesIn(folders_.temporary), ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc"));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.OutJob")), SmallOutputJob());
}

TEST_F(PrepareTest, OutputJobWithoutConfigurationFailsLayerSelection) {
  PutFile(output_job_, "[OutputJobFile]\r\nConfiguration1_Item10=PlotTopLayerPlot=True\r\n");
  EXPECT_TRUE(EndsSilentlyWith(8, Prepare()));
  EXPECT_EQ(Log().back(),
            Entry(L"Prepare layer selection failed",
                  L"Manifest=" + manifest_ +
                      L" Error=The ODB configuration was not found in the temporary OutJob."));
}

class StatusTest : public PrepareTest {
 protected:
  void SetUp() override {
    PrepareTest::SetUp();
    status_ = Scratch(L"status\\done.txt");
    ASSERT_TRUE(CreateDirectoryW(Scratch(L"status").c_str(), nullptr));
  }
  std::vector<std::wstring> Left() const { return NamesIn(Scratch(L"status")); }

  std::wstring status_;
};

TEST_F(StatusTest, SuccessIsPublishedAsOk) {
  EXPECT_TRUE(EndsSilentlyWith(0, PrepareWithStatus(status_)));
  EXPECT_EQ(FileBytes(status_), "OK\r\n");
  EXPECT_THAT(Left(), ElementsAre(L"done.txt"));
}

TEST_F(StatusTest, EveryOtherCodeIsPublishedAsError) {
  const auto expect = [this](int code) {
    EXPECT_TRUE(EndsSilentlyWith(code, PrepareWithStatus(status_)));
    EXPECT_EQ(FileBytes(status_), "ERROR\r\n") << code;
    EXPECT_TRUE(DeleteFileW(status_.c_str()));
  };
  Depend({Scratch(L"none.PcbDoc")});
  expect(9);
  PutFile(Scratch(L"Bridge.PcbDoc"), "twin");
  Depend({Scratch(L"Bridge.PcbDoc")});
  expect(7);
  Depend({});
  ASSERT_TRUE(DeleteFileW(manifest_.c_str()));
  expect(8);
  ASSERT_TRUE(DeleteFileW(output_job_.c_str()));
  expect(4);
}

TEST_F(StatusTest, ExistingStatusFileEndsWithTen) {
  PutFile(status_, "old");
  EXPECT_TRUE(EndsSilentlyWith(10, PrepareWithStatus(status_)));
  EXPECT_EQ(FileBytes(status_), "old");
  EXPECT_EQ(FileBytes(status_ + L".tmp"), "OK\r\n");
  EXPECT_EQ(Log().back(), Entry(L"Prepare status failed", L"Cannot publish completion result"));
  // The preparation itself succeeded.
  EXPECT_TRUE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(StatusTest, UnpublishedStatusTurnsEveryCodeIntoTen) {
  PutFile(status_, "old");
  Depend({Scratch(L"none.PcbDoc")});
  EXPECT_TRUE(EndsSilentlyWith(10, PrepareWithStatus(status_)));
  EXPECT_EQ(FileBytes(status_ + L".tmp"), "ERROR\r\n");
}

TEST_F(StatusTest, AStaleTemporaryNameIsOverwritten) {
  PutFile(status_ + L".tmp", "a long leftover of an earlier run");
  EXPECT_TRUE(EndsSilentlyWith(0, PrepareWithStatus(status_)));
  EXPECT_EQ(FileBytes(status_), "OK\r\n");
  EXPECT_THAT(Left(), ElementsAre(L"done.txt"));
}

TEST_F(StatusTest, OpenTemporaryStatusFileIsShared) {
  PutFile(status_ + L".tmp", "scanned");
  const FileHandle open = HoldOpen(status_ + L".tmp", GENERIC_READ | GENERIC_WRITE,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  EXPECT_TRUE(EndsSilentlyWith(0, PrepareWithStatus(status_)));
  EXPECT_EQ(FileBytes(status_), "OK\r\n");
}

TEST_F(StatusTest, MissingStatusFolderEndsWithTen) {
  EXPECT_TRUE(EndsSilentlyWith(10, PrepareWithStatus(Scratch(L"nowhere\\done.txt"))));
  EXPECT_EQ(Log().back(), Entry(L"Prepare status failed", L"Cannot publish completion result"));
  EXPECT_FALSE(Exists(Scratch(L"nowhere")));
}

TEST_F(StatusTest, AnEmptyStatusPathEndsWithTen) {
  // The temporary name is then ".tmp" in the current directory.
  ProgramRun run(
      KestrunePath(),
      L"--prepare " + Quoted(board_) + L" " + Quoted(list_) + L" " + Quoted(manifest_) + L" \"\"",
      Scratch(L""));
  EXPECT_TRUE(EndsSilentlyWith(10, Finish(std::move(run))));
  EXPECT_EQ(FileBytes(Scratch(L".tmp")), "OK\r\n");
}

}  // namespace
}  // namespace kestrune
