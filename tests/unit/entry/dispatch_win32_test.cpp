#include "entry/dispatch_win32.h"

#include <gmock/gmock.h>

#include <new>
#include <utility>

#include "common/path.h"
#include "tests/support/export_fixture_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Box = std::pair<std::wstring, MessageIcon>;

/// Modes that only note what they are asked for.
class NotedCalls : public ModeCalls {
 public:
  InstallerResult Install(const InstallerOptions&) override { return result; }
  int Position(std::uint64_t target, std::uint64_t reference) override {
    return static_cast<int>(target * 10 + reference);
  }
  int Prepare(const PrepareCommand&) override { return prepare_code; }
  int WaitNative(const WaitNativeCommand&) override { return 77; }
  int Finalize(const std::wstring& native_zip, const std::wstring&,
               std::optional<std::int64_t> space) override {
    finalized = native_zip;
    finalized_space = space;
    return 78;
  }
  bool FindTemporaryRoot(std::wstring& root) override {
    root = L"C:\\root";
    return root_is_known;
  }
  void Show(const std::wstring& text, MessageIcon icon) override { boxes.emplace_back(text, icon); }

  InstallerResult result;
  int prepare_code = 0;
  bool root_is_known = true;
  std::wstring finalized;
  std::optional<std::int64_t> finalized_space;
  std::vector<Box> boxes;
};

/// Modes that fail as nothing expects them to; the boxes too when asked so.
class FailingCalls final : public NotedCalls {
 public:
  InstallerResult Install(const InstallerOptions&) override { throw std::bad_alloc(); }
  int Position(std::uint64_t, std::uint64_t) override { throw std::bad_alloc(); }
  int Prepare(const PrepareCommand&) override { throw std::bad_alloc(); }
  int WaitNative(const WaitNativeCommand&) override { throw std::bad_alloc(); }
  int Finalize(const std::wstring&, const std::wstring&, std::optional<std::int64_t>) override {
    throw std::bad_alloc();
  }
  void Show(const std::wstring& text, MessageIcon icon) override {
    if (boxes_fail) {
      throw std::bad_alloc();
    }
    NotedCalls::Show(text, icon);
  }

  bool boxes_fail = false;
};

class LastResortTest : public ExportTest {
 protected:
  int Run(const Command& command) { return RunCommand(command, calls_); }
  void ExpectUnhandledFailureIsLogged() const {
    EXPECT_THAT(Log(), ElementsAre("Stage: Unhandled failure"));
  }
  Box FinalizeBox() const {
    return {L"ODB++ export finalization failed.\nStage: Copying native output\nSee log: " +
                folders_.log,
            MessageIcon::Error};
  }

  FailingCalls calls_;
};

TEST_F(LastResortTest, AFailedPreparationPublishesAnErrorAndEndsWithFour) {
  EXPECT_EQ(Run(PrepareCommand{L"a", L"b", L"c", Scratch(L"status.txt")}), 4);
  EXPECT_EQ(FileBytes(Scratch(L"status.txt")), "ERROR\r\n");
  ExpectUnhandledFailureIsLogged();
}

TEST_F(LastResortTest, AFailedPreparationThatNobodyAskedAboutEndsWithFour) {
  EXPECT_EQ(Run(PrepareCommand{L"a", L"b", L"c", std::nullopt}), 4);
  ExpectUnhandledFailureIsLogged();
}

TEST_F(LastResortTest, AFailedPreparationWhoseStatusCannotBePublishedEndsWithTen) {
  PutFile(Scratch(L"status.txt"), "of another run");
  EXPECT_EQ(Run(PrepareCommand{L"a", L"b", L"c", Scratch(L"status.txt")}), 10);
  EXPECT_EQ(FileBytes(Scratch(L"status.txt")), "of another run");
}

TEST_F(LastResortTest, AFailedWaitLeavesAResultAndEndsWithFive) {
  EXPECT_EQ(Run(WaitNativeCommand{L"a", L"b", Scratch(L"wait.txt")}), 5);
  EXPECT_EQ(FileBytes(Scratch(L"wait.txt")), "ERROR\r\n");
  ExpectUnhandledFailureIsLogged();
}

TEST_F(LastResortTest, AFailedFinalizationShowsWhereTheLogIsAndEndsWithFour) {
  EXPECT_EQ(Run(FinalizeCommand{L"a", L"b"}), 4);
  EXPECT_THAT(calls_.boxes, ElementsAre(FinalizeBox()));
  ExpectUnhandledFailureIsLogged();
}

TEST_F(LastResortTest, AFailedAutomaticFinalizationDoesTheSame) {
  EXPECT_EQ(Run(FinalizeAutoCommand{L"a", std::nullopt}), 4);
  EXPECT_THAT(calls_.boxes, ElementsAre(FinalizeBox()));
  ExpectUnhandledFailureIsLogged();
}

TEST_F(LastResortTest, AFailedPositioningEndsSilentlyWithThree) {
  EXPECT_EQ(Run(PositionWindowCommand{1, 2}), 3);
  EXPECT_THAT(calls_.boxes, IsEmpty());
  ExpectUnhandledFailureIsLogged();
}

TEST_F(LastResortTest, AFailedInstallerEndsWithFortyAndIsSilentWhenQuiet) {
  EXPECT_EQ(Run(InstallerOptions{}), 40);
  EXPECT_THAT(calls_.boxes,
              ElementsAre(Box{L"The installer failed unexpectedly.", MessageIcon::Warning}));
  calls_.boxes.clear();
  InstallerOptions quiet;
  quiet.quiet = true;
  EXPECT_EQ(Run(quiet), 40);
  EXPECT_THAT(calls_.boxes, IsEmpty());
}

TEST_F(LastResortTest, AnUnexpectedInstallerFailureIsReported) {
  InstallerOptions options;
  options.quiet = true;
  options.report = Scratch(L"report.txt");
  EXPECT_EQ(Run(options), 40);
  EXPECT_EQ(FileBytes(*options.report), "\xEF\xBB\xBFThe installer failed unexpectedly.");
}

TEST_F(LastResortTest, WithoutRoomForABoxTheCodeIsLeft) {
  calls_.boxes_fail = true;
  EXPECT_EQ(Run(FinalizeCommand{L"a", L"b"}), 4);
  EXPECT_EQ(Run(FinalizeAutoCommand{L"a", std::nullopt}), 4);
  EXPECT_EQ(Run(InstallerOptions{}), 40);
  EXPECT_EQ(Run(UnknownCommand{}), 1);
  EXPECT_EQ(Run(InvalidInstallerCommand{}), 2);
}

using DispatchTest = ExportTest;

TEST_F(DispatchTest, AnUnknownTemporaryRootEndsTheAutomaticFinalizationSilentlyWithTwo) {
  NotedCalls calls;
  calls.root_is_known = false;
  EXPECT_EQ(RunCommand(FinalizeAutoCommand{L"a", std::nullopt}, calls), 2);
  EXPECT_EQ(calls.finalized, L"");
  EXPECT_THAT(calls.boxes, IsEmpty());
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(DispatchTest, TheAutomaticFinalizationTakesTheHostsArchiveAndTheSpacing) {
  NotedCalls calls;
  EXPECT_EQ(RunCommand(FinalizeAutoCommand{L"a", 12}, calls), 78);
  EXPECT_EQ(calls.finalized, L"C:\\root\\Project Outputs for Bridge\\ODB\\Bridge.zip");
  EXPECT_EQ(calls.finalized_space, 12);
}

TEST_F(DispatchTest, ACommandLineIsSplitReadAndCarriedOut) {
  NotedCalls calls;
  EXPECT_EQ(RunCommandLine(L"\"C:\\a b\\Kestrune.exe\" --position-window 4 2", calls), 42);
  EXPECT_EQ(RunCommandLine(L"Kestrune.exe --finalize \"C:\\a b.zip\" board", calls), 78);
  EXPECT_EQ(calls.finalized, L"C:\\a b.zip");
  EXPECT_EQ(calls.finalized_space, std::nullopt);
}

TEST_F(DispatchTest, TheInstallersReportIsShownUnlessQuiet) {
  NotedCalls calls;
  calls.result = {30, L"report"};
  EXPECT_EQ(RunCommand(InstallerOptions{}, calls), 30);
  calls.result.code = 0;
  EXPECT_EQ(RunCommand(InstallerOptions{}, calls), 0);
  InstallerOptions quiet;
  quiet.quiet = true;
  EXPECT_EQ(RunCommand(quiet, calls), 0);
  EXPECT_THAT(calls.boxes, ElementsAre(Box{L"report", MessageIcon::Warning},
                                       Box{L"report", MessageIcon::Information}));
}

}  // namespace
}  // namespace kestrune
