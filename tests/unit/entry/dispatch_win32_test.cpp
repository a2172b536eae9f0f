#include "entry/dispatch_win32.h"

#include <gmock/gmock.h>

#include <new>

#include "common/failure/failure.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/process/noted_boxes_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Box = NotedBoxes::Box;

/// Returns the modes with one replaced.
template <class C>
Modes Replaced(int (*run)(const C& command, const Doors& doors)) {
  Modes modes = kModes;
  std::get<Mode<C>>(modes).run = run;
  return modes;
}

template <class Thrown, class Options>
void MakeThrow(Mode<Options>& mode) {
  mode.run = [](const Options&, const Doors&) -> int { throw Thrown(); };
}

/// Returns modes that all throw.
template <class Thrown>
Modes ThrowingModes() {
  Modes modes = kModes;
  std::apply([](auto&... mode) { (MakeThrow<Thrown>(mode), ...); }, modes);
  return modes;
}

class LastResortTest : public ExportTest {
 protected:
  int Run(const Command& command) {
    return RunCommand(command, ThrowingModes<std::bad_alloc>(), doors_);
  }
  void ExpectUnhandledFailureIsLogged() const {
    EXPECT_THAT(Log(), ElementsAre("Stage: Unhandled failure | Error=std::bad_alloc"));
  }
  Box FinalizeBox() const {
    return {L"ODB++ export finalization failed.\nStage: Copying native output\nSee log: " +
                folders_.log,
            MessageIcon::Error};
  }

  SystemCalls system_;
  NotedBoxes desktop_;
  Doors doors_{system_, desktop_};
};

TEST_F(LastResortTest, FailedModeLeavesItsErrorFile) {
  const struct {
    Command command;
    int code;
    const char* text;
  } rows[] = {{PrepareCommand{L"a", L"b", L"c", Scratch(L"file")}, 4, "ERROR\r\n"},
              {WaitNativeCommand{L"a", L"b", Scratch(L"file")}, 5, "ERROR\r\n"},
              {InspectCommand{L"a", Scratch(L"file")}, 3,
               "VERSION=1\r\nERROR=The archive could not be inspected.\r\nEND\r\n"}};
  for (const auto& row : rows) {
    EXPECT_EQ(Run(row.command), row.code);
    EXPECT_EQ(FileBytes(Scratch(L"file")), row.text);
    ExpectUnhandledFailureIsLogged();
    ASSERT_TRUE(DeleteFileW(Scratch(L"file").c_str()) && DeleteFileW(folders_.log.c_str()));
  }
  EXPECT_EQ(Run(PrepareCommand{L"a", L"b", L"c", std::nullopt}), 4);
}

TEST_F(LastResortTest, FailedPreparationWithUnwritableStatusIsTen) {
  PutFile(Scratch(L"status.txt"), "of another run");
  EXPECT_EQ(Run(PrepareCommand{L"a", L"b", L"c", Scratch(L"status.txt")}), 10);
  EXPECT_EQ(FileBytes(Scratch(L"status.txt")), "of another run");
}

TEST_F(LastResortTest, FailedFinalizationShowsTheLogsPath) {
  EXPECT_EQ(Run(FinalizeCommand{L"a", L"b", std::nullopt}), 4);
  EXPECT_THAT(desktop_.boxes, ElementsAre(FinalizeBox()));
  ExpectUnhandledFailureIsLogged();
}

TEST_F(LastResortTest, AFailedPositioningEndsSilentlyWithThree) {
  EXPECT_EQ(Run(PositionWindowCommand{1, 2}), 3);
  EXPECT_THAT(desktop_.boxes, IsEmpty());
  ExpectUnhandledFailureIsLogged();
}

TEST_F(LastResortTest, FailedInstallerReportsAsWanted) {
  InstallerOptions options;
  options.report = Scratch(L"report.txt");
  EXPECT_EQ(Run(options), 40);
  EXPECT_THAT(desktop_.boxes,
              ElementsAre(Box{L"The installer failed unexpectedly.", MessageIcon::Warning}));
  EXPECT_EQ(FileBytes(*options.report), "\xEF\xBB\xBFThe installer failed unexpectedly.");
  desktop_.boxes.clear();
  options.quiet = true;
  EXPECT_EQ(Run(options), 40);
  EXPECT_THAT(desktop_.boxes, IsEmpty());
}

TEST_F(LastResortTest, WithoutRoomForBoxCodeIsLeft) {
  desktop_.boxes_fail = true;
  EXPECT_EQ(Run(FinalizeCommand{L"a", L"b", std::nullopt}), 4);
  EXPECT_EQ(Run(InstallerOptions{}), 40);
  EXPECT_EQ(Run(UnknownCommand{}), 1);
  EXPECT_EQ(Run(InvalidInstallerCommand{}), 2);
}

struct ThrownFailure : Failure {
  ThrownFailure() : Failure{L"copy", 5} {}
};

TEST_F(LastResortTest, TheLogSaysWhatWasThrown) {
  EXPECT_EQ(RunCommand(PositionWindowCommand{}, ThrowingModes<ThrownFailure>(), doors_), 3);
  EXPECT_EQ(RunCommand(PositionWindowCommand{}, ThrowingModes<int>(), doors_), 3);
  EXPECT_THAT(Log(), ElementsAre("Stage: Unhandled failure | Error=copy GetLastError=5",
                                 "Stage: Unhandled failure | Error=unknown"));
}

using DispatchTest = ExportTest;

int PositionOf(const PositionWindowCommand& command, const Doors&) {
  return static_cast<int>(command.target * 10 + command.reference);
}

TEST_F(DispatchTest, CommandLineIsSplitParsedAndRun) {
  SystemCalls system;
  NotedBoxes desktop;
  const auto command = ReadCommandLine(L"\"C:\\a b\\Kestrune.exe\" --position-window 4 2");
  ASSERT_TRUE(command.has_value());
  EXPECT_EQ(RunCommand(*command, Replaced(PositionOf), {system, desktop}), 42);
  const auto finalize =
      ReadCommandLine(L"Kestrune.exe --finalize \"C:\\a b.zip\" board").value_or(UnknownCommand{});
  ASSERT_TRUE(std::holds_alternative<FinalizeCommand>(finalize));
  EXPECT_EQ(std::get<FinalizeCommand>(finalize).native_zip, L"C:\\a b.zip");
}

}  // namespace
}  // namespace kestrune
