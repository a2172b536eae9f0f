// The four installer commands with the profiles of a machine: exit codes, reports, log, and the
// state that a host then reads.
#include "install/installer_win32.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <stdexcept>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/machine/moved_profile_win32.h"
#include "tests/support/scarce_memory.h"
#include "tests/support/scripted_calls_win32.h"

namespace kestrune {
namespace {

using enum InstallerCommand;
using Refused = ScarceMemory::Refused;

constexpr InstallerCommand kCommands[] = {Install, Update, Uninstall, Status};
constexpr std::wstring_view kNotInstalled = L"Not installed / registration requires repair\n";
constexpr std::wstring_view kDeploymentFailed = L"Runtime deployment failed; profile unchanged.";
constexpr std::wstring_view kUnverified = L" (executable/profile must be verified).";
constexpr std::wstring_view kNoAnchor =
    L"No validated per-instance toolbar anchor; use manual Global Project and toolbar "
    L"registration. No profile changes made.";

class InstallerTest : public InstallTest {
 protected:
  InstallerTest() { calls_.flushes = false; }

  InstallerResult Run(InstallerCommand command) {
    options_.command = command;
    options_.package = package_;
    return RunInstallerCommand(calls_, options_, program_);
  }
  void Expect(InstallerCommand command, int code, const std::wstring& report) {
    const InstallerResult result = Run(command);
    EXPECT_EQ(result.code, code);
    EXPECT_EQ(result.message, report);
  }
  void ExpectDone(InstallerCommand command) {
    const InstallerResult result = Run(command);
    EXPECT_EQ(result.code, 0) << Utf8FromWide(result.message);
  }
  /// Expects this report of each command and this entry in the log of all but `--status`, and that
  /// nothing is deployed.
  void ExpectProblem(const std::wstring& report, const std::wstring& entry) {
    for (const InstallerCommand command : kCommands) {
      Expect(command, command == Status ? 10 : 40, report);
      ExpectLogged(command == Status ? 0 : 1, {entry});
    }
    EXPECT_FALSE(Exists(folders_.runtime));
  }
  void ExpectSkipped(const MadeInstance& host, const std::wstring& reason) {
    ExpectProblem(Skipped(host, reason),
                  L"Installer skipped | Reason=" + reason + L" GUID=" + host.guid);
  }
  void ExpectFailed(const MadeInstance& host, const std::wstring& error, DWORD code = 0) {
    ExpectProblem(Failed(host, error), FailedEntry(error, code) + L" GUID=" + host.guid);
  }
  void ExpectStatus(int code, const MadeInstance& host) {
    Expect(Status, code, HeaderOf(host) + std::wstring(code == 0 ? L"Installed\n" : kNotInstalled));
  }
  /// Expects also that `--status` changes and logs nothing.
  void ExpectPureStatus(int code, const MadeInstance& host) {
    const Snapshot before = TakeSnapshot();
    ExpectStatus(code, host);
    EXPECT_EQ(CompareSnapshots(before, TakeSnapshot()), std::vector<std::string>{});
  }
  static std::wstring FailedEntry(const std::wstring& error, DWORD code = 0) {
    return L"Installer failed | Error=" + error + L" GetLastError=" + std::to_wstring(code);
  }
  /// Makes every call with this name and path fail.
  void Refuse(std::string_view name, const std::wstring& path, DWORD code) {
    calls_.before = [=, text = ExtendedPath(path).Text()](const SystemCall& call) {
      return call.name == name && call.path == text ? std::optional(code) : std::nullopt;
    };
  }
  static HostButton Button(const MadeInstance& host) { return OurButtons(ReadAsHost(host)).at(0); }

  ScriptedCalls calls_;
  InstallerOptions options_;
  std::wstring program_ = KestrunePath();
};

TEST_F(InstallerTest, WithoutInstanceNothingIsDone) {
  BoxInstance viewer = UsedHost(1, 24);
  viewer.display_name = L"Altium Designer Viewer";
  MakeHost(viewer);
  const Snapshot before = TakeSnapshot();
  for (const InstallerCommand command : kCommands) {
    Expect(command, 20, L"No Altium instance found.");
    ExpectLogged(command == Status ? 0 : 1, {FailedEntry(L"No Altium instance found.")});
  }
  EXPECT_EQ(CompareSnapshots(before, TakeSnapshot()), std::vector<std::string>{});
}

TEST_F(InstallerTest, RunningHostStopsAllCommandsButStatus) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const RunningAs running(Scratch(L"x2.EXE"));
  const Snapshot before = TakeSnapshot();
  for (const InstallerCommand command : {Install, Update, Uninstall}) {
    const std::wstring text =
        L"Close all Altium instances before changing shared runtime or registration.";
    Expect(command, 30, text);
    ExpectLogged(1, {FailedEntry(text)});
  }
  ExpectPureStatus(10, host);
  EXPECT_EQ(CompareSnapshots(before, TakeSnapshot()), std::vector<std::string>{});
}

TEST_F(InstallerTest, HostStartedMeanwhileStopsLaterInstances) {
  const MadeInstance first = MakeHost(UsedHost(1, 24));
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  for (const InstallerCommand command : {Install, Uninstall}) {
    std::optional<RunningAs> running;
    // Processes are listed at the beginning, and for each instance before its transaction.
    calls_.before = [&, looks = 0](const SystemCall& call) mutable -> std::optional<DWORD> {
      if (call.name == "SnapshotProcesses" && ++looks == 3) {
        running.emplace(Scratch(L"dxp.exe"));
      }
      return std::nullopt;
    };
    const InstallerResult result = Run(command);
    EXPECT_EQ(result.code, 40);
    EXPECT_EQ(result.message,
              (command == Install ? Registered(first) : Removed(first)) +
                  Failed(second, L"Altium started during preparation; aborting registration."));
    EXPECT_TRUE(HasNothingOfOurs(second));
  }
}

TEST_F(InstallerTest, FiltersSelectTheInstances) {
  const MadeInstance old_host = MakeHost(UsedHost(1, 17));
  const MadeInstance new_host = MakeHost(UsedHost(2, 24));
  options_.major = 17;
  ExpectStatus(10, old_host);
  options_.profile = new_host.guid;
  Expect(Status, 20, L"No Altium instance found.");
  options_ = {};
  options_.profile = L"{00000002-ABCD-4222-8333-444455556666}";
  ExpectDone(Install);
  EXPECT_TRUE(HasNothingOfOurs(old_host));
  EXPECT_TRUE(HasWorkingButton(new_host));
}

TEST_F(InstallerTest, UnpreparedInstanceIsSkipped) {
  BoxInstance unmatched = UsedHost(1, 24);
  unmatched.has_branch = false;
  MadeInstance host = MakeHost(unmatched);
  host.profile.clear();
  host.branch.clear();
  ExpectSkipped(host, L"Missing or ambiguous profile/registry instance for " + host.guid +
                          std::wstring(kUnverified));
  ClearBox();
  BoxInstance without_program = UsedHost(1, 24);
  without_program.program.clear();
  ExpectSkipped(MakeHost(without_program), std::wstring(kUnverified));
  ClearBox();
  BoxInstance never_started = UsedHost(1, 24);
  never_started.has_rcs = false;
  host = MakeHost(never_started);
  ExpectSkipped(host, L"DXP.RCS does not exist; initialize this Altium profile first.");
  EXPECT_FALSE(Exists(host.rcs));
}

TEST_F(InstallerTest, UnreadableStateFailsItsInstance) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  {
    const FileHandle held = HoldOpen(host.rcs, GENERIC_READ | GENERIC_WRITE, 0);
    ExpectFailed(host, L"Open RCS (Win32 32)", 32);
  }
  const std::string damaged = "'x\r\nInstalled' a End\r\n";
  PutFile(host.rcs, damaged);
  ExpectFailed(host,
               L"Unknown RCS record: x??Installed Manual registration required; no profile "
               L"change.");
  EXPECT_EQ(FileBytes(host.rcs), damaged);
  const std::vector<std::byte> large(1'048'577);
  ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, host.ProjectsKey().c_str(), L"Item9", REG_BINARY,
                            large.data(), static_cast<DWORD>(large.size())),
            ERROR_SUCCESS);
  PutFile(host.rcs, UsedHost(1, 24).rcs);
  ExpectFailed(host, L"Registry value exceeds safe limit.");
}

TEST_F(InstallerTest, UnplannableListIsNotInstalled) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  RegSetKeyValueW(HKEY_CURRENT_USER, host.ProjectsKey().c_str(), L"Item1000010", REG_SZ, L"x", 4);
  ExpectStatus(10, host);
  for (const InstallerCommand command : {Install, Uninstall}) {
    Expect(command, 40, Failed(host, L"ItemN index too large."));
  }
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallerTest, OnlyRegistrationNeedsAPlace) {
  BoxInstance without_toolbar = UsedHost(1, 24);
  without_toolbar.toolbars = HostToolbars::None;
  const MadeInstance first = MakeHost(without_toolbar);
  ExpectStatus(10, first);
  ExpectDone(Uninstall);
  Expect(Install, 40, Failed(first, kNoAnchor));
  EXPECT_FALSE(Exists(folders_.runtime));
  // The next instance deploys the runtime.
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  const InstallerResult result = Run(Update);
  EXPECT_EQ(result.code, 40);
  EXPECT_EQ(result.message, Failed(first, kNoAnchor) + Registered(second));
  EXPECT_TRUE(HasWorkingButton(second));
}

TEST_F(InstallerTest, UnreadableToolbarDefinitionsHaveNoPlace) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  ExpectDone(Install);
  {
    const FileHandle locked = HoldOpen(host.resource, GENERIC_READ, 0);
    ExpectStatus(10, host);
  }
  const std::string definitions = FileBytes(host.resource);
  constexpr std::uint64_t kLargest = 64 << 20;
  PutSparseFile(host.resource, kLargest, definitions);
  ExpectStatus(0, host);
  PutSparseFile(host.resource, kLargest + 1, definitions);
  ExpectStatus(10, host);
}

TEST_F(InstallerTest, FailedTransactionIsReportedAfterItsBackups) {
  const MadeInstance hosts[] = {MakeHost(UsedHost(1, 24)), MakeHost(UsedHost(2, 24)),
                                MakeHost(UsedHost(3, 24))};
  const FileHandle held = HoldOpen(hosts[1].rcs, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  const std::wstring error = L"Replace RCS (Win32 32) Rollback complete (or no owned writes).";
  const InstallerResult result = Run(Install);
  EXPECT_EQ(result.code, 40);
  EXPECT_EQ(result.message, Registered(hosts[0]) + Transacted(hosts[1], L"FAILED: " + error) +
                                Registered(hosts[2]));
  ExpectLogged(1, {FailedEntry(error) + L" GUID=" + hosts[1].guid});
  EXPECT_TRUE(HasNothingOfOurs(hosts[1]));
  EXPECT_EQ(FileBytes(LatestBackup(hosts[1]) + L"\\operation.log").find("Product="),
            std::string::npos);
  EXPECT_TRUE(HasWorkingButton(hosts[2]));
}

TEST_F(InstallerTest, LockedLogFailsOnlyTheReport) {
  const BoxInstance used = UsedHost(1, 24);
  const MadeInstance host = MakeHost(used);
  calls_.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    const bool is_too_late = call.name == "Create" && call.path.ends_with(L"operation.log") &&
                             FileBytes(host.rcs) != used.rcs;
    return is_too_late ? std::optional<DWORD>(ERROR_SHARING_VIOLATION) : std::nullopt;
  };
  const InstallerResult result = Run(Install);
  EXPECT_EQ(result.code, 40);
  EXPECT_EQ(result.message, Transacted(host, L"FAILED: Cannot write operation log."));
  EXPECT_TRUE(HasWorkingButton(host));
  EXPECT_EQ(NamesIn(host.profile), (std::vector<std::wstring>{L"DXP.RCS", L"KestruneBackups"}));
}

TEST_F(InstallerTest, KeepsUserRecordsAndLogsTheInstance) {
  const BoxInstance used = UsedHost(1, 24);
  const MadeInstance host = MakeHost(used);
  SetEntryText(host, L"DisplayVersion", L"24.1 \x00E4 \x540D");
  ExpectDone(Install);
  EXPECT_EQ(FileBytes(LatestBackup(host) + L"\\DXP.RCS.before"), used.rcs);
  // The log's code page replaces characters.
  const std::string line = "Product=Altium Designer Version=24.1 \xE4 ? GUID=";
  const std::string log = FileBytes(LatestBackup(host) + L"\\operation.log");
  EXPECT_NE(log.find(line + Utf8FromWide(host.guid)), std::string::npos) << log;
  EXPECT_EQ(ReadAsHost(host).projects,
            (std::vector<std::wstring>{L"C:\\Scripts\\It's.PrjScr", Runtime(L"Kestrune.PrjScr")}));
  EXPECT_EQ(ReadAsHost(host).buttons.size(), 2U);
  ExpectDone(Uninstall);
  EXPECT_EQ(ReadAsHost(host).projects, used.projects);
  EXPECT_EQ(ReadAsHost(host).buttons.size(), 1U);
}

TEST_F(InstallerTest, SecondRunChangesNothingButAddsLog) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  ExpectDone(Install);
  const Snapshot before = TakeSnapshot();
  ExpectDone(Update);
  const std::vector<std::string> changes = CompareSnapshots(before, TakeSnapshot());
  ASSERT_EQ(changes.size(), 2U) << testing::PrintToString(changes);
  EXPECT_NE(changes[0].find("\\operation.log size "), std::string::npos) << changes[0];
  EXPECT_EQ(changes[1], "+ folder " + Utf8FromWide(LatestBackup(host)));
}

TEST_F(InstallerTest, RemovalDeploysNothing) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const InstallerResult result = Run(Uninstall);
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.message, Removed(host));
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallerTest, EmptyCustomizationFileIsRegisteredToo) {
  BoxInstance instance = UsedHost(1, 24);
  instance.rcs.clear();
  const MadeInstance host = MakeHost(instance);
  const InstallerResult result = Run(Install);
  EXPECT_EQ(result.message,
            Transacted(host, L"Installed/updated and validated.", L"captured empty RCS"));
  EXPECT_TRUE(HasWorkingButton(host));
}

TEST_F(InstallerTest, HalfARegistrationIsNotInstalled) {
  const BoxInstance used = UsedHost(1, 24);
  const MadeInstance host = MakeHost(used);
  ExpectDone(Install);
  const std::string registered = FileBytes(host.rcs);
  SetProjects(host, used.projects);
  ExpectPureStatus(10, host);
  // The list has the project, but with a number that a registration would change.
  SetProjects(host, {L"C:\\Scripts\\It's.PrjScr", L"C:\\x", Runtime(L"Kestrune.PrjScr")});
  RegDeleteKeyValueW(HKEY_CURRENT_USER, host.ProjectsKey().c_str(), L"Item1");
  ExpectStatus(10, host);
  SetProjects(host, {L"C:\\Scripts\\It's.PrjScr", Runtime(L"Kestrune.PrjScr")});
  ExpectStatus(0, host);
  PutFile(host.rcs, used.rcs);
  ExpectStatus(10, host);
  PutFile(host.rcs,
          registered + "Deletion d TargetID='TopBarPCB' DeleteID='KestruneToolbarLink' End\r\n");
  ExpectStatus(10, host);
  ExpectDone(Update);
  ExpectStatus(0, host);
  EXPECT_TRUE(HasWorkingButton(host));
}

TEST_F(InstallerTest, ExtraRecordsMakeAProfileAcceptable) {
  BoxInstance instance = UsedHost(1, 24);
  instance.rcs += ShortcutRecords();
  const MadeInstance host = MakeHost(instance);
  const std::string setting = Utf16WithMark(L"[Registration]\r\nExtraRecords=Change\r\n");
  // Only the user's own file counts.
  PutFile(folders_.settings, setting);
  PutFile(folders_.common + L"\\Kestrune\\registration.ini", setting);
  EXPECT_EQ(Run(Install).code, 40);
  ExtraRecords(L" Other , Change,End,P L");
  ExpectDone(Install);
  EXPECT_TRUE(HasWorkingButton(host));
  EXPECT_NE(FileBytes(host.rcs).find(ShortcutRecords()), std::string::npos);
  ExpectStatus(0, host);
}

TEST_F(InstallerTest, SpecialBuildGetsItsImage) {
  BoxInstance instance = UsedHost(1, 26);
  instance.version = L"26.9.1.9";
  instance.display_name = L"Altium Designer Develop";
  const MadeInstance host = MakeHost(instance);
  ExpectDone(Install);
  EXPECT_EQ(WidenBytes(Button(host).image), Runtime(L"odbpp-toolbar-ad26-16.png"));
  // After a change of the edition the next run sets its image.
  SetEntryText(host, L"DisplayName", L"Altium Designer");
  ExpectDone(Update);
  EXPECT_EQ(WidenBytes(Button(host).image), Runtime(L"odbpp-toolbar-activebar.png"));
}

TEST_F(InstallerTest, HintNamesTheUsersApplication) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  PutFile(Scratch(L"app.exe"), "x");
  const std::pair<const wchar_t*, std::string> rows[] = {
      {L"Vi\x00E4wer", "Export PCB through Kestrune -> Vi\xE4wer"},
      {L"\x540D", "Export PCB through Kestrune"}};
  for (const auto& [name, hint] : rows) {
    Settings(L"[Target]\nEnabled=1\nExecutablePath=" + Scratch(L"app.exe") + L"\nProgramName=" +
             name + L"\n");
    // A button with another hint counts as installed; an update changes the hint.
    EXPECT_EQ(Run(Status).code, hint == rows[0].second ? 10 : 0);
    ExpectDone(Update);
    EXPECT_EQ(Button(host).hint, hint);
  }
}

TEST_F(InstallerTest, DiscoveryErrorEndsTheRun) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  Refuse("GetAttributes", host.program, ERROR_ACCESS_DENIED);
  for (const InstallerCommand command : kCommands) {
    Expect(command, 40, L"status");
    ExpectLogged(command == Status ? 0 : 1, {FailedEntry(L"status", ERROR_ACCESS_DENIED) +
                                             L" Path=" + host.program + L" GUID=" + host.guid});
  }
}

TEST_F(InstallerTest, UnreadablePackageFailsTheInstance) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const std::wstring file = JoinPath(package_, L"Script\\Kestrune.PrjScr");
  Refuse("GetAttributes", file, ERROR_ACCESS_DENIED);
  Expect(Install, 40, Failed(host, L"status"));
  ExpectLogged(
      1, {FailedEntry(L"status", ERROR_ACCESS_DENIED) + L" GUID=" + host.guid + L" Path=" + file});
  EXPECT_TRUE(HasNothingOfOurs(host));
}

/// Deployments that are refused, for each of two instances anew.
class RefusedDeployment : public InstallerTest {
 protected:
  void ExpectRefused(const std::wstring& reason, DWORD code = 0) {
    const MadeInstance hosts[] = {MakeHost(UsedHost(1, 17)), MakeHost(UsedHost(2, 24))};
    Expect(Install, 40, Failed(hosts[0], kDeploymentFailed) + Failed(hosts[1], kDeploymentFailed));
    const std::wstring refusal = FailedEntry(reason, code) + L" Package=" + package_;
    const std::wstring failed = FailedEntry(std::wstring(kDeploymentFailed)) + L" GUID=";
    ExpectLogged(1, {refusal, failed + hosts[0].guid, refusal, failed + hosts[1].guid});
    EXPECT_TRUE(HasNothingOfOurs(hosts[0]));
    EXPECT_EQ(FileBytes(hosts[1].rcs), UsedHost(2, 24).rcs);
  }
};

TEST_F(RefusedDeployment, NamesPackageFileAndCode) {
  const std::wstring form = JoinPath(package_, L"Script\\Kestrune_WaitForm.dfm");
  ASSERT_TRUE(DeleteFileW(form.c_str()));
  ExpectRefused(L"Missing file of the package: " + form);
  MakePackage(package_, kLaterTime, "two");
  const FileHandle held = HoldOpen(Runtime(L"Kestrune.PrjScr"), GENERIC_READ, FILE_SHARE_READ);
  ExpectRefused(L"Cannot lock target: " + Runtime(L"Kestrune.PrjScr"), ERROR_SHARING_VIOLATION);
}

TEST_F(RefusedDeployment, NamesProgramWithoutPackage) {
  package_.clear();
  program_ = Scratch(L"elsewhere\\Kestrune.exe");
  ExpectRefused(L"No package beside the program: " + program_);
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(RefusedDeployment, NeedsTheProgramsOwnPath) {
  program_.clear();
  ExpectRefused(L"The program's own path is too long.");
  package_.clear();
  ExpectRefused(L"The program's own path is too long.");
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(RefusedDeployment, SucceededOnceForAllInstances) {
  // A package of unproven age only adds missing files: a second deployment is refused.
  package_ = Scratch(L"kestrunes\\package");
  MakePackage(package_, kPackageTime, "one");
  const MadeInstance hosts[] = {MakeHost(UsedHost(1, 17)), MakeHost(UsedHost(2, 24))};
  ExpectDone(Install);
  EXPECT_TRUE(HasWorkingButton(hosts[0]));
  EXPECT_TRUE(HasWorkingButton(hosts[1]));
  EXPECT_EQ(Run(Install).message,
            Failed(hosts[0], kDeploymentFailed) + Failed(hosts[1], kDeploymentFailed));
}

TEST_F(InstallerTest, DeploysThePackageAroundTheProgram) {
  MakeHost(UsedHost(1, 24));
  program_ = JoinPath(package_, L"1\\Kestrune.exe");
  PutFile(program_, "program");
  package_.clear();
  ExpectDone(Install);
  EXPECT_EQ(FileBytes(Runtime(L"Kestrune.exe")), "program");
}

/// Installations for users whose profile folder has a special name.
class MovedInstallation : public InstallerTest {
 protected:
  /// Returns the roaming profile's host in the moved profile.
  MadeInstance HostIn(const std::wstring& home) {
    MadeInstance host = MakeHost(UsedHost(1, 24));
    profile_.emplace(home);
    MoveHost(host, home + L"\\AppData\\Roaming");
    return host;
  }

 private:
  std::optional<MovedProfile> profile_;
};

TEST_F(MovedInstallation, PathOutsideTheCodePageIsRefused) {
  const std::wstring home = Scratch(L"\x540D\x524D");
  HostIn(home);
  const std::wstring text =
      L"Runtime path cannot be represented safely by the existing DelphiScript runtime.";
  for (const InstallerCommand command : kCommands) {
    Expect(command, 40, text);
  }
  EXPECT_EQ(NamesIn(home + L"\\AppData\\Local\\Kestrune"), std::vector<std::wstring>{L"Logs"});
  EXPECT_TRUE(FileBytes(home + L"\\AppData\\Local\\Kestrune\\Logs\\bridge.log")
                  .ends_with("] Stage: " + Utf8FromWide(FailedEntry(text)) + "\r\n"));
}

TEST_F(MovedInstallation, SpecialLettersInTheUsersNameWork) {
  const MadeInstance host = HostIn(Scratch(L"O'H\x00E4ra"));
  ExpectDone(Install);
  EXPECT_TRUE(HasWorkingButton(host));
  ExpectDone(Status);
}

class InstallerWithStrangeCalls : public InstallerTest {
 protected:
  /// Installs while the first host's file throws when it is opened.
  template <class Thrown>
  InstallerResult InstallThrowing(const MadeInstance& first, const Thrown& thrown) {
    calls_.before = [&](const SystemCall& call) -> std::optional<DWORD> {
      if (call.name == "Create" && call.path == ExtendedPath(first.rcs).Text()) {
        throw thrown;
      }
      return std::nullopt;
    };
    return Run(Install);
  }
};

TEST_F(InstallerWithStrangeCalls, LossOfButtonFailsFinalValidation) {
  const MadeInstance host = MakeHost(UsedHost(1, 17));
  calls_.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    if (call.name == "SetValue") {
      PutFile(host.rcs, "Tree PCBCustom Caption='[Custom]' TopLevel='True' End\r\n");
    }
    return std::nullopt;
  };
  const std::wstring message = Run(Install).message;
  EXPECT_NE(message.find(L"FAILED: Final state validation failed. File recovery blocked: "),
            std::wstring::npos)
      << Utf8FromWide(message);
}

TEST_F(InstallerWithStrangeCalls, AnyExceptionIsReportedForItsInstance) {
  const MadeInstance first = MakeHost(UsedHost(1, 17));
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  const InstallerResult strange = InstallThrowing(first, std::runtime_error("strange"));
  EXPECT_EQ(strange.code, 40);
  EXPECT_EQ(strange.message, Failed(first, L"Unexpected failure: strange") + Registered(second));
  ExpectLogged(1, {L"Installer failed | Error=Unexpected failure: strange GetLastError=0 GUID=" +
                   first.guid});
  const InstallerResult stranger = InstallThrowing(first, 7);
  EXPECT_EQ(stranger.code, 40);
  EXPECT_EQ(stranger.message, Failed(first, L"Unexpected failure.") + Registered(second));
  const InstallerResult without_memory = InstallThrowing(first, std::bad_alloc());
  EXPECT_EQ(without_memory.message, Failed(first, L"Not enough memory.") + Registered(second));
  EXPECT_TRUE(HasNothingOfOurs(first));
  EXPECT_TRUE(HasWorkingButton(second));
}

/// Installations in this process, over two instances of one user.
class InstallerInScarcity : public InstallTest {
 protected:
  void Begin() {
    ClearBox();
    hosts_ = {MakeHost(UsedHost(1, 24)), MakeHost(UsedHost(2, 17))};
  }

  /// Returns the number of attempted allocations.
  long Install(long allowed, Refused refused) {
    InstallerOptions options;
    options.package = package_;
    const std::wstring program = KestrunePath();
    SystemCalls calls;
    const ScarceMemory memory(allowed, refused);
    result_ = RunInstallerCommand(calls, options, program);
    return ScarceMemory::Asked();
  }

  std::vector<MadeInstance> hosts_;
  InstallerResult result_;
};

TEST_F(InstallerInScarcity, RunWithoutMemoryIsLogged) {
  Begin();
  Install(0, Refused::One);
  EXPECT_EQ(result_.code, 40);
  ExpectLogged(1, {L"Installer failed | Error=Not enough memory. GetLastError=8"});
}

TEST_F(InstallerInScarcity, ChangesAreReportedAndSuccessIsComplete) {
  constexpr long kPoints = 12;
  Begin();
  const long all = Install(std::numeric_limits<long>::max(), Refused::One);
  ASSERT_EQ(result_.code, 0) << Utf8FromWide(result_.message);
  ASSERT_GT(all, kPoints);
  int partly = 0;
  for (const Refused refused : {Refused::One, Refused::AllFromThenOn}) {
    for (long point = 0; point <= kPoints; ++point) {
      SCOPED_TRACE(testing::Message() << "allocation " << (all - 1) * point / kPoints << " of "
                                      << all << (refused == Refused::One ? "" : " and all later"));
      Begin();
      const std::string before[] = {FileBytes(hosts_[0].rcs), FileBytes(hosts_[1].rcs)};
      Install((all - 1) * point / kPoints, refused);
      EXPECT_TRUE(result_.code == 40 || result_.code == 0) << result_.code;
      for (std::size_t i = 0; i < 2; ++i) {
        const bool changed = FileBytes(hosts_[i].rcs) != before[i];
        partly += changed && result_.code == 40 ? 1 : 0;
        EXPECT_TRUE(!changed || result_.message.find(hosts_[i].guid) != std::wstring::npos)
            << Utf8FromWide(result_.message);
        // Some failed allocations do no harm, but a reported success must be complete.
        EXPECT_TRUE(result_.code == 40 || HasWorkingButton(hosts_[i]));
      }
    }
  }
  EXPECT_GT(partly, 0);
}

}  // namespace
}  // namespace kestrune
