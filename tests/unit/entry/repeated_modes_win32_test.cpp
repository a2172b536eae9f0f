// Runs each mode many times in one process, which must not have more open handles afterwards. A
// real run ends with its process, so only this shows a handle that a mode leaves open.
#include <gmock/gmock.h>

#include <windows.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "entry/dispatch_win32.h"
#include "install/installer_win32.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/process/noted_boxes_win32.h"
#include "tests/support/machine/open_resources_win32.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/remove_tree_win32.h"
#include "tests/support/export/zip_builder.h"

namespace kestrune {
namespace {

/// Returns the program's modes, which deploy Kestrune.exe instead of the test program.
Modes ModesUnderTest() {
  Modes modes = kModes;
  std::get<Mode<InstallerOptions>>(modes).run = [](const InstallerOptions& options,
                                                   const Doors& doors) {
    return static_cast<int>(RunInstallerCommand(doors.system, options, KestrunePath()).code);
  };
  return modes;
}

/// Repeats `round` and compares the open resources after the first rounds, in which the system's
/// libraries open those that they keep, with the open resources after the last round.
void ExpectNothingLeaks(const std::function<void()>& round, int rounds = RepeatedRounds(10)) {
  constexpr int kFirstRounds = 3;
  for (int i = 0; i < kFirstRounds && !::testing::Test::HasFailure(); ++i) {
    round();
  }
  const OpenResources before = CountOpenResources();
  for (int i = 0; i < rounds && !::testing::Test::HasFailure(); ++i) {
    round();
  }
  const OpenResources after = CountOpenResources();
  // On Windows, the system's threads open and close some of their own; a leak takes one each round.
  const std::size_t allowance = RunsUnderWine() ? 0 : static_cast<std::size_t>(rounds) / 2;
  EXPECT_LE(after.handles, before.handles + allowance);
  EXPECT_LE(after.gui_objects, before.gui_objects);
  ::testing::Test::RecordProperty("rounds", rounds);
  ::testing::Test::RecordProperty("handles", static_cast<int>(after.handles));
}

TEST(OpenResourcesTest, EveryKindOfHandleCounts) {
  const OpenResources before = CountOpenResources();
  const KernelHandle event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  RegistryKey key;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, key.Put()), ERROR_SUCCESS);
  WIN32_FIND_DATAW entry = {};
  const FindHandle search(FindFirstFileW(L"C:\\*", &entry));
  EXPECT_EQ(CountOpenResources().handles, before.handles + 3);
}

class RepeatedModes : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    board_ = Scratch(L"Main.PcbDoc");
    PutFile(board_, "board");
    PutFile(Scratch(L"Panel.PcbDoc"), "panel");
    PutFile(Scratch(L"list.txt"), Utf8FromWide(Scratch(L"Panel.PcbDoc")) + "\r\n");
    PutFile(Scratch(L"layers.txt"), "PlotKey=PlotTopLayerPlot\r\n");
    PutFile(JoinPath(folders_.runtime, L"Bridge.OutJob"), SmallOutputJob());
  }

  int Run(const Command& command) { return RunCommand(command, modes_, doors_); }

  void PutArchive() const { PutFile(folders_.native_zip, "PK\3\4archive"); }

  /// Writes settings that pass the export to a program which ends at once.
  void ConfigureApplication(const std::wstring& more) const {
    Settings(L"[Target]\nEnabled=1\nExecutablePath=" + TestProgramPath(L"child_recorder") + L"\n" +
             more + L"\n");
    SetEnvironmentVariableW(L"KESTRUNE_CHILD_RECORD", Scratch(L"record.txt").c_str());
  }

  /// Waits until the started program has ended.
  void AwaitRecord() const {
    for (int i = 0; i < 1000 && !DeleteFileW(Scratch(L"record.txt").c_str()); ++i) {
      Sleep(5);
    }
  }

  Modes modes_ = ModesUnderTest();
  SystemCalls system_;
  NotedBoxes desktop_;
  Doors doors_{system_, desktop_};
  std::wstring board_;
};

TEST_F(RepeatedModes, Preparing) {
  const std::wstring status = Scratch(L"status.txt");
  ExpectNothingLeaks([&] {
    EXPECT_EQ(Run(PrepareCommand{board_, Scratch(L"list.txt"), Scratch(L"layers.txt"), status}), 0);
    EXPECT_TRUE(DeleteFileW(status.c_str()));
  });
}

TEST_F(RepeatedModes, PreparingThatFails) {
  const std::wstring status = Scratch(L"status.txt");
  PutFile(Scratch(L"gone.txt"), "C:\\gone\\Panel.PcbDoc\r\n");
  ExpectNothingLeaks([&] {
    EXPECT_EQ(Run(PrepareCommand{board_, L"none", L"C:\\gone\\layers.txt", status}), 8);
    EXPECT_EQ(Run(PrepareCommand{board_, L"none", Scratch(L"layers.txt"), status}), 10);
    EXPECT_EQ(Run(PrepareCommand{board_, Scratch(L"gone.txt"), Scratch(L"layers.txt"), {}}), 9);
    EXPECT_TRUE(DeleteFileW(status.c_str()));
    DeleteFileW((status + L".tmp").c_str());
  });
}

TEST_F(RepeatedModes, WaitingForTheArchive) {
  PutArchive();
  // A wait sleeps for a second and a half, so eight of them run at once as eight rounds.
  constexpr int kAtOnce = 8;
  const auto wait_eight_times = [&] {
    std::vector<int> codes(kAtOnce, -1);
    std::vector<std::thread> waits;
    for (std::size_t i = 0; i < kAtOnce; ++i) {
      waits.emplace_back([this, i, &codes] {
        codes[i] =
            Run(WaitNativeCommand{folders_.native_zip, L"none", Scratch(std::to_wstring(i))});
      });
    }
    for (std::thread& wait : waits) {
      wait.join();
    }
    EXPECT_EQ(codes, std::vector<int>(kAtOnce, 0));
  };
  ExpectNothingLeaks(wait_eight_times, RepeatedRounds(2 * kAtOnce) / kAtOnce);
}

TEST_F(RepeatedModes, InspectingArchives) {
  const std::wstring good = Scratch(L"good.zip");
  const std::wstring bad = Scratch(L"bad.zip");
  PutFile(good, BuildZip({{"matrix/matrix", "LAYER {\n}\n"}}));
  PutFile(bad, "no archive");
  ExpectNothingLeaks([&] {
    EXPECT_EQ(Run(InspectCommand{good, Scratch(L"list.txt")}), 0);
    EXPECT_EQ(Run(InspectCommand{bad, Scratch(L"list.txt")}), 3);
  });
}

TEST_F(RepeatedModes, DeliveringToTheClipboard) {
  PutArchive();
  Settings(L"[Export]\nDirectory=" + Scratch(L"") + L"\n");
  ExpectNothingLeaks([&] { EXPECT_EQ(Run(FinalizeCommand{std::nullopt, board_, 80'000}), 0); });
}

TEST_F(RepeatedModes, DeliveringToANewApplication) {
  PutArchive();
  ConfigureApplication(L"Arguments=x \"%ODBPP%\"");
  ExpectNothingLeaks([&] {
    EXPECT_EQ(Run(FinalizeCommand{std::nullopt, board_, std::nullopt}), 0);
    AwaitRecord();
  });
}

TEST_F(RepeatedModes, DeliveringToARunningApplication) {
  PutArchive();
  const std::wstring name = L"TAVORIN.Kestrune." + std::to_wstring(GetCurrentProcessId());
  const FileHandle slot(CreateMailslotW((L"\\\\.\\mailslot\\" + name).c_str(), 0, 0, nullptr));
  ASSERT_TRUE(static_cast<bool>(slot));
  ConfigureApplication(L"Arguments=x\nMailslotName=" + name);
  ExpectNothingLeaks([&] {
    EXPECT_EQ(Run(FinalizeCommand{folders_.native_zip, board_, std::nullopt}), 0);
    char message[4096] = {};
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(slot.Get(), message, sizeof(message), &read, nullptr) && read > 0);
  });
}

TEST_F(RepeatedModes, DeliveringThatFails) {
  const std::wstring destination = JoinPath(folders_.default_export, L"Main.zip");
  PutFile(destination, "old");
  ExpectNothingLeaks([&] {
    EXPECT_EQ(Run(FinalizeCommand{L"C:\\gone\\Bridge.zip", board_, std::nullopt}), 4);
    PutArchive();
    const FileHandle held = HoldOpen(destination, GENERIC_READ, 0);
    EXPECT_EQ(Run(FinalizeCommand{std::nullopt, board_, std::nullopt}), 4);
  });
}

TEST_F(RepeatedModes, CentringAWindow) {
  const HWND window = CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 0, 0, 200, 100,
                                      nullptr, nullptr, nullptr, nullptr);
  const auto number = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(window));
  ExpectNothingLeaks([&] {
    EXPECT_EQ(Run(PositionWindowCommand{number, 0}), 0);
    EXPECT_EQ(Run(PositionWindowCommand{0, number}), 2);
  });
  DestroyWindow(window);
}

class RepeatedInstaller : public InstallTest {
 protected:
  int Run(InstallerCommand command) {
    InstallerOptions options;
    options.command = command;
    options.package = package_;
    options.quiet = true;
    return RunCommand(options, modes_, doors_);
  }

  Modes modes_ = ModesUnderTest();
  SystemCalls system_;
  NotedBoxes desktop_;
  Doors doors_{system_, desktop_};
};

TEST_F(RepeatedInstaller, InstallingUpdatingAndRemoving) {
  const MadeInstance hosts[] = {MakeHost(UsedHost(1, 17)), MakeHost(UsedHost(2, 24))};
  ExpectNothingLeaks([&] {
    EXPECT_EQ(Run(InstallerCommand::Install), 0);
    EXPECT_EQ(Run(InstallerCommand::Status), 0);
    EXPECT_EQ(Run(InstallerCommand::Update), 0);
    EXPECT_EQ(Run(InstallerCommand::Uninstall), 0);
    for (const MadeInstance& host : hosts) {
      // Backups are kept for good, and a thousand of them would only slow the search for the last.
      EXPECT_TRUE(RemoveTree(JoinPath(host.profile, L"KestruneBackups")));
    }
    EXPECT_TRUE(RemoveTree(folders_.runtime));
  });
}

TEST_F(RepeatedInstaller, InstallingThatFails) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const std::string rcs = FileBytes(host.rcs);
  ExpectNothingLeaks([&] {
    {
      // Readable, but not replaceable: the transaction fails late and rolls back.
      const FileHandle held = HoldOpen(host.rcs, GENERIC_READ, FILE_SHARE_READ);
      EXPECT_EQ(Run(InstallerCommand::Install), 40);
    }
    EXPECT_EQ(FileBytes(host.rcs), rcs);
    EXPECT_TRUE(RemoveTree(JoinPath(host.profile, L"KestruneBackups")));
    EXPECT_TRUE(RemoveTree(folders_.runtime));
  });
}

}  // namespace
}  // namespace kestrune
