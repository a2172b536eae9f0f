// Whole exports: the stand-in plays the host and its script, well-behaved and not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/after_export_fixture_win32.h"
#include "tests/support/machine/moved_profile_win32.h"
#include "tests/support/export/odb_archive.h"
#include "tests/support/export/output_job_reader.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class ExportRoadTest : public AfterExportTest {
 protected:
  void SetUp() override {
    AfterExportTest::SetUp();
    board_ = Scratch(L"Main.PcbDoc");
    PutFile(board_, SmallBoard());
    PutFile(JoinPath(folders_.runtime, L"Bridge.OutJob"), SmallOutputJob());
  }

  ProgramRun StartHost(const std::wstring& options) const {
    return ProgramRun(TestProgramPath(L"host_standin"),
                      L"--board " + Quoted(board_) + L" --program " + Quoted(KestrunePath()) +
                          L" --journal " + Quoted(Scratch(L"journal.txt")) + L" --press-ok " +
                          options);
  }

  /// Returns the exit code of one export that the stand-in drives.
  int Export(const std::wstring& options) const {
    return StartHost(options).WaitForExit(60'000).value_or(RunOutcome::kNeverEnded);
  }

  std::string Journal() const { return FileBytes(Scratch(L"journal.txt")); }

  std::string Delivered() const { return FileBytes(default_destination_); }
};

/// Returns the names in the archive.
std::vector<std::string> NamesInArchive(const std::string& archive) {
  std::vector<std::string> names;
  for (const auto& [name, content] : ReadStoredZip(archive)) {
    names.push_back(name);
  }
  return names;
}

TEST_F(ExportRoadTest, ABoardGoesFromTheButtonToTheClipboard) {
  ASSERT_EQ(Export(L"--plot-key PlotTopLayerPlot --plot-key PlotBottomLayerPlot "
                   L"--layer-name \"Mechanical Layer 1\""),
            0)
      << Journal();
  EXPECT_THAT(
      NamesInArchive(Delivered()),
      ElementsAre("odb/matrix/matrix", "odb/misc/info", "odb/steps/pcb/stephdr",
                  "odb/steps/pcb/profile", "odb/steps/pcb/layers/mechanical_layer_1/features",
                  "odb/steps/pcb/layers/bottomlayer/features",
                  "odb/steps/pcb/layers/toplayer/features"));
  EXPECT_EQ(Delivered(), FileBytes(folders_.native_zip));
  ExpectOnClipboard(default_destination_);
  const std::string journal = Journal();
  EXPECT_THAT(journal, HasSubstr("--position-window ended with 0\n"));
  EXPECT_THAT(journal, HasSubstr("--prepare ended with 0\n"));
  EXPECT_THAT(journal, HasSubstr("status: OK\n"));
  EXPECT_THAT(journal, HasSubstr("--wait-native ended with 0\n"));
  EXPECT_THAT(journal, HasSubstr("message with icon 64: ODB++ export successful. / ZIP: / "));
  EXPECT_THAT(journal, HasSubstr("--finalize-auto ended with 0\n"));
}

TEST_F(ExportRoadTest, EmbeddedBoardsBecomeDocumentsOfTheProject) {
  const std::wstring panel = Scratch(L"Pänel.PcbDoc");
  PutFile(panel, SmallBoard());
  ASSERT_EQ(Export(L"--dependency " + Quoted(panel)), 0) << Journal();
  EXPECT_THAT(Journal(), HasSubstr("project document Document1: Bridge.PcbDoc\n"));
  EXPECT_THAT(Journal(), HasSubstr("project document Document2: " + Utf8FromWide(L"Pänel.PcbDoc")));
  EXPECT_THAT(Journal(), HasSubstr("project document Document3: Bridge.OutJob\n"));
}

TEST_F(ExportRoadTest, TwoExportsInARowBothArrive) {
  ASSERT_EQ(Export(L"--plot-key PlotTopLayerPlot"), 0) << Journal();
  const std::string first = Delivered();
  ASSERT_EQ(Export(L"--plot-key PlotBottomLayerPlot"), 0) << Journal();
  EXPECT_NE(Delivered(), first);
  EXPECT_FALSE(NamesInArchive(Delivered()).empty());
}

TEST_F(ExportRoadTest, ARunningApplicationTakesTheExportOverWithoutAMessage) {
  const std::wstring name_file = Scratch(L"name.txt");
  ProgramRun listener(TestProgramPath(L"mailslot_listener"),
                      Quoted(name_file) + L" " + Quoted(Scratch(L"message.txt")) + L" 1 30000");
  for (int i = 0; i < 1000 && !Exists(name_file); ++i) {
    Sleep(10);
  }
  Configure(L"Arguments=x \"%ODBPP%\"\nMailslotName=" + WidenBytes(FileBytes(name_file)));
  ASSERT_EQ(Export(L"--space 80000"), 0) << Journal();
  EXPECT_EQ(listener.WaitForExit(10'000), 0);
  EXPECT_EQ(FileBytes(Scratch(L"message.txt")),
            Utf8FromWide(std::wstring(kIdentity) + L" x " + Quoted(default_destination_) +
                         L" -space:8mil"));
  EXPECT_THAT(Journal(), ::testing::Not(HasSubstr("message with icon")));
  ExpectClipboardUntouched();
}

TEST_F(ExportRoadTest, AHostThatWritesSlowlyIsWaitedFor) {
  ASSERT_EQ(Export(L"--manner slow"), 0) << Journal();
  EXPECT_FALSE(NamesInArchive(Delivered()).empty());
}

TEST_F(ExportRoadTest, AnArchiveThatIsReplacedWhileItIsWaitedForArrivesWhole) {
  ASSERT_EQ(Export(L"--manner replace"), 0) << Journal();
  EXPECT_FALSE(NamesInArchive(Delivered()).empty());
}

TEST_F(ExportRoadTest, AHostThatStopsHalfWayLooksFinishedBecauseOnlyTheSizeIsKnown) {
  ASSERT_EQ(Export(L"--manner half"), 0) << Journal();
  EXPECT_TRUE(NamesInArchive(Delivered()).empty());
  EXPECT_EQ(Delivered(), FileBytes(folders_.native_zip));
}

TEST_F(ExportRoadTest, AHostThatKeepsTheArchiveForItselfIsNamedInTheMessage) {
  EXPECT_EQ(Export(L"--manner hold"), 7) << Journal();
  EXPECT_THAT(Journal(), HasSubstr("--wait-native ended with 0\n"));
  EXPECT_THAT(Journal(),
              HasSubstr("message with icon 16: Cannot overwrite the destination ZIP. / " +
                        Utf8FromWide(default_destination_) + " / "));
  EXPECT_THAT(Journal(), HasSubstr("--finalize-auto ended with 4\n"));
}

TEST_F(ExportRoadTest, AnEmptyArchiveIsNeverTakenForComplete) {
  EXPECT_EQ(Export(L"--manner zero --patience 4000"), 5) << Journal();
  EXPECT_THAT(Journal(), HasSubstr("result: no answer\n"));
  EXPECT_FALSE(Exists(default_destination_));
}

TEST_F(ExportRoadTest, WithoutTheDeployedOutputJobTheScriptLearnsThatPreparationFailed) {
  ASSERT_TRUE(DeleteFileW(JoinPath(folders_.runtime, L"Bridge.OutJob").c_str()));
  EXPECT_EQ(Export(L""), 3) << Journal();
  EXPECT_THAT(Journal(), HasSubstr("--prepare ended with 4\n"));
  EXPECT_THAT(Journal(), HasSubstr("status: ERROR\n"));
}

TEST_F(ExportRoadTest, TheBridgeBoardOfTheLastExportCannotBeExported) {
  ASSERT_EQ(Export(L""), 0) << Journal();
  board_ = JoinPath(folders_.temporary, L"Bridge.PcbDoc");
  EXPECT_EQ(Export(L""), 3) << Journal();
  EXPECT_THAT(Journal(), HasSubstr("--prepare ended with 9\n"));
  EXPECT_TRUE(Exists(board_));
}

TEST_F(ExportRoadTest, AUsersNameMayHoldAnything) {
  const std::wstring user =
      Scratch(L"Zo\x00EB O'Brien & \x0141ukasz \x03A9\x03BC\x03AD\x03B3\x03B1 100%");
  const std::wstring local = user + L"\\AppData\\Local\\Kestrune";
  PutFile(local + L"\\Runtime\\Bridge.OutJob", SmallOutputJob());
  const MovedProfile moved(user);
  board_ = JoinPath(user, L"It's a board, 50% \x017C.PcbDoc");
  PutFile(board_, SmallBoard());
  ASSERT_EQ(Export(L"--plot-key PlotTopLayerPlot"), 0) << Journal();
  const std::wstring delivered = local + L"\\ODBpp\\It's a board, 50% \x017C.zip";
  EXPECT_EQ(FileBytes(delivered), FileBytes(folders_.native_zip));
  ExpectOnClipboard(delivered);
  EXPECT_THAT(FileBytes(local + L"\\Logs\\bridge.log"),
              HasSubstr("Destination=" + Utf8FromWide(delivered)));
  EXPECT_FALSE(Exists(folders_.log));
}

TEST_F(ExportRoadTest, AProfileOnAShareThatHasGoneEndsTheExportWithoutLoss) {
  ASSERT_EQ(Export(L"--plot-key PlotTopLayerPlot"), 0) << Journal();
  const std::string former = Delivered();
  const MovedProfile moved(L"\\\\server.invalid\\profiles\\somebody");
  // The deployed output job is on the share too, so the export cannot start.
  EXPECT_EQ(Export(L"--plot-key PlotBottomLayerPlot"), 3) << Journal();
  EXPECT_THAT(Journal(), HasSubstr("status: ERROR\n"));
  EXPECT_EQ(Delivered(), former);
  PutFile(folders_.native_zip, "PK archive");
  EXPECT_TRUE(EndsWithBox(4,
                          L"ODB++ export finalization failed.\nStage: Copying native output\nSee "
                          L"log: \\\\server.invalid\\profiles\\somebody\\AppData\\Local\\Kestrune\\"
                          L"Logs\\bridge.log",
                          MB_ICONERROR, RunKestrune(L"--finalize-auto " + Quoted(board_))));
  EXPECT_EQ(FileBytes(folders_.native_zip), "PK archive");
}

}  // namespace
}  // namespace kestrune
