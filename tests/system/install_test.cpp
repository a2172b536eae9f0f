// The four installer commands as a user or a setup program starts them: reports, exit codes, and
// what a host then reads.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "registration/transaction/global_projects.h"
#include "registration/store/global_projects_key_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/machine/moved_profile_win32.h"
#include "tests/support/remove_tree_win32.h"

namespace kestrune {
namespace {

constexpr unsigned kGood = MB_ICONINFORMATION;
constexpr unsigned kBad = MB_ICONWARNING;
constexpr const wchar_t* kCommands[] = {L"--install", L"--update", L"--uninstall", L"--status"};
constexpr std::wstring_view kNotInstalled = L"Not installed / registration requires repair\n";
constexpr std::wstring_view kDeploymentFailed = L"Runtime deployment failed; profile unchanged.";
constexpr std::wstring_view kNoAnchor =
    L"No validated per-instance toolbar anchor; use manual Global Project and toolbar "
    L"registration. No profile changes made.";

int ProblemCode(const std::wstring& command) {
  return command == L"--status" ? 10 : 40;
}

/// Runs `--status` and checks that it changes nothing.
class InstallStatusTest : public InstallTest {
 protected:
  void ExpectStatus(int code, const std::wstring& text) {
    const Snapshot before = TakeSnapshot();
    EXPECT_TRUE(EndsWithBox(code, text, code == 0 ? kGood : kBad, Run(L"--status")));
    EXPECT_EQ(CompareSnapshots(before, TakeSnapshot()), std::vector<std::string>{});
  }
};

TEST_F(InstallTest, RegistersEachInstanceForItsHost) {
  const MadeInstance legacy = MakeHost(UsedHost(1, 17));
  const MadeInstance active = MakeHost(UsedHost(2, 24));
  const RunOutcome outcome = Run(L"--install");
  EXPECT_TRUE(EndsWithBox(0, Registered(legacy) + Registered(active), kGood, outcome));
  EXPECT_TRUE(HasWorkingButton(legacy));
  EXPECT_TRUE(HasWorkingButton(active));
  const HostButton old_button = OurButtons(ReadAsHost(legacy)).at(0);
  EXPECT_EQ(old_button.toolbar, "TLPCBToolbar");
  EXPECT_EQ(old_button.beside, "TBPCB_StandardToolbar760");
  EXPECT_EQ(old_button.caption, "Kestrune");
  EXPECT_EQ(old_button.hint, "Export PCB through Kestrune");
  EXPECT_EQ(WidenBytes(old_button.image), Runtime(L"odbpp-toolbar-legacy.bmp"));
  const HostButton new_button = OurButtons(ReadAsHost(active)).at(0);
  EXPECT_EQ(new_button.toolbar, "TopBarPCB");
  EXPECT_EQ(new_button.beside, "TopBarPCB010");
  EXPECT_EQ(WidenBytes(new_button.image), Runtime(L"odbpp-toolbar-activebar.png"));
}

TEST_F(InstallTest, DeploysNineFilesWithPackageTimes) {
  MakeHost(UsedHost(1, 24));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  std::vector<std::wstring> names = RuntimeFiles();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(NamesIn(folders_.runtime), names);
  EXPECT_EQ(FileBytes(Runtime(L"Kestrune.exe")), FileBytes(KestrunePath()));
  EXPECT_EQ(TimeOf(Runtime(L"Kestrune.exe")), TimeOf(KestrunePath()));
  for (const std::wstring& name : RuntimeFiles()) {
    if (name != L"Kestrune.exe") {
      EXPECT_EQ(TimeOf(Runtime(name)), kPackageTime) << Utf8FromWide(name);
    }
  }
  EXPECT_EQ(FileBytes(Runtime(L"Kestrune.pas")), "{ " + Utf8FromWide(folders_.runtime) +
                                                     " }\r\n{ " + Utf8FromWide(folders_.temporary) +
                                                     " }\r\nProcedure RunKestrune;\r\none");
}

TEST_F(InstallTest, KeepsUserRecordsAndLogsTheInstance) {
  const BoxInstance used = UsedHost(1, 24);
  const MadeInstance host = MakeHost(used);
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  EXPECT_EQ(FileBytes(LatestBackup(host) + L"\\DXP.RCS.before"), used.rcs);
  const std::string log = FileBytes(LatestBackup(host) + L"\\operation.log");
  EXPECT_NE(log.find("Product=Altium Designer Version=24.1.2.44 GUID=" + Utf8FromWide(host.guid)),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("Commit validated; file and registry updated."), std::string::npos) << log;
  const HostView view = ReadAsHost(host);
  EXPECT_EQ(view.projects,
            (std::vector<std::wstring>{L"C:\\Scripts\\It's.PrjScr", Runtime(L"Kestrune.PrjScr")}));
  EXPECT_EQ(view.buttons.size(), 2U);
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
  EXPECT_EQ(ReadAsHost(host).projects, used.projects);
  EXPECT_EQ(ReadAsHost(host).buttons.size(), 1U);
}

/// Waits until a run has logged the intended text, and then locks its operation log.
FileHandle ShutLog(const MadeInstance& host) {
  const ULONGLONG end = GetTickCount64() + 20'000;
  while (GetTickCount64() < end) {
    const std::wstring log = JoinPath(LatestBackup(host), L"operation.log");
    std::string text;
    if (TryReadFile(log, 4096, text) && text.find("Intended SHA256=") != std::string::npos) {
      FileHandle shut(
          CreateFileW(log.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
      if (shut) {
        return shut;
      }
    }
  }
  return {};
}

TEST_F(InstallTest, LockedLogFailsOnlyTheReport) {
  // Every second number is missing: rewriting so many entries takes longer than locking the log.
  constexpr int kProjects = 100;
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  SystemCalls calls;
  for (int i = 0; i < kProjects; ++i) {
    altium_registration::WriteRegistryValue(
        calls, host.ProjectsKey(),
        {L"Item" + std::to_wstring(2 * i + 3), altium_registration::kRegistryText,
         altium_registration::TextData(L"C:\\Scripts\\" + std::to_wstring(i) + L".PrjScr")});
  }
  ProgramRun run(KestrunePath(), L"--install --package " + Quoted(package_));
  const FileHandle shut = ShutLog(host);
  ASSERT_TRUE(shut);
  const RunOutcome outcome = Finish(std::move(run));
  EXPECT_TRUE(
      EndsWithBox(40, Transacted(host, L"FAILED: Cannot write operation log."), kBad, outcome));
  EXPECT_TRUE(HasWorkingButton(host));
  EXPECT_EQ(ReadAsHost(host).projects.size(), kProjects + 2U);
  EXPECT_EQ(NamesIn(host.profile), (std::vector<std::wstring>{L"DXP.RCS", L"KestruneBackups"}));
  ASSERT_TRUE(EndsWithBox(0, HeaderOf(host) + L"Installed\n", kGood, Run(L"--status")));
}

TEST_F(InstallTest, ReportFileHoldsTextOfBox) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  SetEntryText(host, L"DisplayVersion", L"24.1 \x540D");
  const std::wstring report = Scratch(L"rep\x00F6rt.txt");
  const std::wstring more = L"--report " + Quoted(report);
  for (const wchar_t* command : {L"--status", L"--install", L"--update", L"--uninstall"}) {
    PutFile(report, std::string(5000, 'x'));
    const RunOutcome outcome = Run(command, more);
    ASSERT_EQ(outcome.boxes.size(), 1U);
    const std::wstring& box = outcome.boxes[0].text;
    EXPECT_EQ(FileBytes(report), "\xEF\xBB\xBF" + Utf8FromWide(WithWindowsLineEnds(box)));
    EXPECT_TRUE(box.starts_with(L"Altium Designer 24.1 \x540D\nGUID: ")) << Utf8FromWide(box);
  }
  EXPECT_TRUE(EndsSilentlyWith(10, RunQuietly(L"--status", more)));
  EXPECT_TRUE(FileBytes(report).ends_with("\r\nNot installed / registration requires repair\r\n"));
  EXPECT_TRUE(EndsSilentlyWith(20, RunQuietly(L"--status", more + L" --major 3")));
  EXPECT_EQ(FileBytes(report), "\xEF\xBB\xBFNo Altium instance found.");
}

TEST_F(InstallTest, AnInvalidLineWritesNoReport) {
  const std::wstring report = Scratch(L"report.txt");
  EXPECT_EQ(Run(L"--status", L"--quiet --report " + Quoted(report) + L" --bogus").code, 2);
  EXPECT_FALSE(Exists(report));
}

TEST_F(InstallTest, AnUnwritableReportChangesNoCode) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  for (const wchar_t* command : {L"--status", L"--install", L"--uninstall"}) {
    const int code = command == std::wstring_view(L"--status") ? 10 : 0;
    const std::wstring more = L"--report " + Quoted(Scratch(L"missing\\report.txt"));
    EXPECT_TRUE(EndsSilentlyWith(code, RunQuietly(command, more)));
    EXPECT_TRUE(FileBytes(folders_.log)
                    .ends_with("] Stage: Installer report failed | Error=Cannot write report. "
                               "GetLastError=3 Report=" +
                               Utf8FromWide(Scratch(L"missing\\report.txt")) + "\r\n"));
    ASSERT_TRUE(DeleteFileW(folders_.log.c_str()));
  }
}

TEST_F(InstallTest, SecondRunChangesNothingButAddsLog) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  for (const wchar_t* command : {L"--install", L"--update"}) {
    const Snapshot before = TakeSnapshot();
    const RunOutcome outcome = Run(command);
    EXPECT_TRUE(EndsWithBox(0, Registered(host), kGood, outcome));
    const std::vector<std::string> changes = CompareSnapshots(before, TakeSnapshot());
    ASSERT_EQ(changes.size(), 2U) << testing::PrintToString(changes);
    EXPECT_NE(changes[0].find("\\operation.log size "), std::string::npos) << changes[0];
    EXPECT_EQ(changes[1], "+ folder " + Utf8FromWide(LatestBackup(host)));
    EXPECT_NE(FileBytes(LatestBackup(host) + L"\\operation.log").find("Idempotent: no changes."),
              std::string::npos);
  }
}

TEST_F(InstallTest, UninstallTakesRegistrationOutAndLeavesRuntime) {
  const MadeInstance legacy = MakeHost(UsedHost(1, 16));
  const MadeInstance active = MakeHost(UsedHost(2, 26));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  const std::vector<std::wstring> runtime = NamesIn(folders_.runtime);
  const RunOutcome outcome = Run(L"--uninstall");
  EXPECT_TRUE(EndsWithBox(0, Removed(legacy) + Removed(active), kGood, outcome));
  EXPECT_TRUE(HasNothingOfOurs(legacy));
  EXPECT_TRUE(HasNothingOfOurs(active));
  EXPECT_EQ(NamesIn(folders_.runtime), runtime);
  // Removing an absent button succeeds and deploys nothing.
  ASSERT_TRUE(RemoveTree(folders_.runtime));
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallStatusTest, DistinguishesInstalledAndWritesNothing) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  ExpectStatus(10, HeaderOf(host) + std::wstring(kNotInstalled));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  ExpectStatus(0, HeaderOf(host) + L"Installed\n");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
  ExpectStatus(10, HeaderOf(host) + std::wstring(kNotInstalled));
}

TEST_F(InstallStatusTest, HalfARegistrationIsNotInstalled) {
  const BoxInstance used = UsedHost(1, 24);
  const MadeInstance host = MakeHost(used);
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  const std::wstring not_installed = HeaderOf(host) + std::wstring(kNotInstalled);
  const std::string registered = FileBytes(host.rcs);

  SetProjects(host, used.projects);
  ExpectStatus(10, not_installed);
  // In the list, but with a number that a registration would change.
  SetProjects(host, {L"C:\\Scripts\\It's.PrjScr", L"C:\\x", Runtime(L"Kestrune.PrjScr")});
  RegDeleteKeyValueW(HKEY_CURRENT_USER, host.ProjectsKey().c_str(), L"Item1");
  ExpectStatus(10, not_installed);

  SetProjects(host, {L"C:\\Scripts\\It's.PrjScr", Runtime(L"Kestrune.PrjScr")});
  ExpectStatus(0, HeaderOf(host) + L"Installed\n");
  PutFile(host.rcs, used.rcs);
  ExpectStatus(10, not_installed);
  PutFile(host.rcs, registered +
                        "Deletion d TargetID='TopBarPCB' DeleteID='KestruneToolbarLink' "
                        "End\r\n");
  ExpectStatus(10, not_installed);
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--update")));
  ExpectStatus(0, HeaderOf(host) + L"Installed\n");
  EXPECT_TRUE(HasWorkingButton(host));
}

TEST_F(InstallStatusTest, UnplannableListIsNotInstalled) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  RegSetKeyValueW(HKEY_CURRENT_USER, host.ProjectsKey().c_str(), L"Item1000010", REG_SZ, L"x", 4);
  ExpectStatus(10, HeaderOf(host) + std::wstring(kNotInstalled));
  for (const wchar_t* command : {L"--install", L"--uninstall"}) {
    const RunOutcome outcome = Run(command);
    EXPECT_TRUE(EndsWithBox(40, Failed(host, L"ItemN index too large."), kBad, outcome));
  }
  // The plan comes before the deployment.
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallTest, WithoutInstanceNothingIsDone) {
  BoxInstance viewer = UsedHost(1, 24);
  viewer.display_name = L"Altium Designer Viewer";
  MakeHost(viewer);
  for (const wchar_t* command : kCommands) {
    const Snapshot before = TakeSnapshot();
    EXPECT_TRUE(EndsWithBox(20, L"No Altium instance found.", kBad, Run(command)));
    EXPECT_TRUE(EndsSilentlyWith(20, RunQuietly(command)));
    const bool is_status = command == std::wstring_view(L"--status");
    ExpectLogged(is_status ? 0 : 2, {L"Installer failed | Error=No Altium instance found. "
                                     L"GetLastError=0"});
    EXPECT_EQ(CompareSnapshots(before, TakeSnapshot()), std::vector<std::string>{});
  }
}

TEST_F(InstallTest, FiltersLeaveTheirInstancesOnly) {
  const MadeInstance old_host = MakeHost(UsedHost(1, 17));
  const MadeInstance new_host = MakeHost(UsedHost(2, 24));
  const std::wstring suffix(kNotInstalled);
  EXPECT_TRUE(EndsWithBox(10, HeaderOf(old_host) + suffix, kBad, Run(L"--status", L"--major 17")));
  EXPECT_TRUE(EndsWithBox(10, HeaderOf(new_host) + suffix, kBad, Run(L"--status", L"--major 24")));
  EXPECT_TRUE(EndsWithBox(10, HeaderOf(new_host) + suffix, kBad,
                          Run(L"--status", L"--profile {00000002-ABCD-4222-8333-444455556666}")));
  EXPECT_TRUE(EndsSilentlyWith(20, RunQuietly(L"--status", L"--major 25")));
  EXPECT_TRUE(EndsSilentlyWith(20, RunQuietly(L"--status", L"--profile 00000002")));
  EXPECT_TRUE(
      EndsSilentlyWith(20, RunQuietly(L"--status", L"--major 17 --profile " + new_host.guid)));
}

TEST_F(InstallTest, OnlyWhatTheFilterLeavesIsChanged) {
  const MadeInstance old_host = MakeHost(UsedHost(1, 17));
  const MadeInstance new_host = MakeHost(UsedHost(2, 24));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install", L"--major 24")));
  EXPECT_TRUE(HasNothingOfOurs(old_host));
  EXPECT_TRUE(HasWorkingButton(new_host));
}

TEST_F(InstallStatusTest, AnInstallationWithoutProgramIsSkipped) {
  BoxInstance gone = UsedHost(1, 24);
  gone.program.clear();
  const MadeInstance host = MakeHost(gone);
  const std::wstring text = Skipped(host, L" (executable/profile must be verified).");
  for (const wchar_t* command : kCommands) {
    EXPECT_TRUE(EndsWithBox(ProblemCode(command), text, kBad, Run(command)));
  }
  ExpectLogged(
      3, {L"Installer skipped | Reason= (executable/profile must be verified). GUID=" + host.guid});
  ExpectStatus(10, text);
}

TEST_F(InstallTest, UndeterminedProfileIsSkippedWithReason) {
  BoxInstance without_profile = UsedHost(1, 24);
  without_profile.has_profile = false;
  BoxInstance without_branch = UsedHost(2, 24);
  without_branch.has_branch = false;
  BoxInstance twice = UsedHost(3, 24);
  BoxInstance disagreeing = UsedHost(4, 24);
  disagreeing.has_branch = false;
  std::wstring text;
  for (const BoxInstance& instance : {without_profile, without_branch, twice, disagreeing}) {
    MadeInstance host = MakeHost(instance);
    host.profile.clear();
    host.branch.clear();
    text += Skipped(
        host, (instance.number == 4 ? L"Profile and HKCU branch disagree for "
                                    : L"Missing or ambiguous profile/registry instance for ") +
                  host.guid + L" (executable/profile must be verified).");
  }
  const std::wstring profiles(ParentPath(PlaceOf(twice).profile));
  ASSERT_TRUE(TryCreateDirectories(JoinPath(profiles, L"Copy of " + PlaceOf(twice).guid)));
  RegistryKey other;
  RegCreateKeyW(HKEY_CURRENT_USER,
                (L"Software\\Altium\\Other " + PlaceOf(disagreeing).guid).c_str(), other.Put());
  for (const wchar_t* command : kCommands) {
    EXPECT_TRUE(EndsWithBox(ProblemCode(command), text, kBad, Run(command)));
  }
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallTest, ProfilesThatCannotBeListedAreReason) {
  BoxInstance instance = UsedHost(1, 24);
  instance.has_profile = false;
  MadeInstance host = MakeHost(instance);
  const std::wstring root(ParentPath(host.profile));
  ASSERT_TRUE(RemoveTree(root));
  PutFile(root, "a file where the profiles should be");
  host.profile.clear();
  host.branch.clear();
  EXPECT_TRUE(EndsWithBox(
      40, Skipped(host, L"Cannot read Altium profiles. (executable/profile must be verified)."),
      kBad, Run(L"--install")));
}

TEST_F(InstallStatusTest, ProfileThatWasNeverStartedIsSkipped) {
  BoxInstance fresh = UsedHost(1, 24);
  fresh.has_rcs = false;
  const MadeInstance host = MakeHost(fresh);
  const std::wstring text =
      Skipped(host, L"DXP.RCS does not exist; initialize this Altium profile first.");
  for (const wchar_t* command : kCommands) {
    EXPECT_TRUE(EndsWithBox(ProblemCode(command), text, kBad, Run(command)));
  }
  ExpectLogged(3, {L"Installer skipped | Reason=DXP.RCS does not exist; initialize this Altium "
                   L"profile first. GUID=" +
                   host.guid});
  ExpectStatus(10, text);
  EXPECT_FALSE(Exists(host.rcs));
}

TEST_F(InstallTest, AFailureBetweenTwoInstancesStopsNeither) {
  const MadeInstance first = MakeHost(UsedHost(1, 24));
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  const MadeInstance third = MakeHost(UsedHost(3, 24));
  const FileHandle held = HoldOpen(second.rcs, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  const RunOutcome outcome = Run(L"--install");
  EXPECT_TRUE(EndsWithBox(
      40,
      Registered(first) +
          Transacted(second,
                     L"FAILED: Replace RCS (Win32 32) Rollback complete (or no owned writes).") +
          Registered(third),
      kBad, outcome));
  EXPECT_TRUE(HasWorkingButton(first));
  EXPECT_TRUE(HasNothingOfOurs(second));
  EXPECT_TRUE(HasWorkingButton(third));
}

TEST_F(InstallTest, FailedTransactionIsReportedAfterItsBackups) {
  const BoxInstance used = UsedHost(1, 24);
  const MadeInstance host = MakeHost(used);
  const FileHandle held = HoldOpen(host.rcs, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  const RunOutcome outcome = Run(L"--install");
  EXPECT_TRUE(EndsWithBox(
      40,
      Transacted(host, L"FAILED: Replace RCS (Win32 32) Rollback complete (or no owned writes)."),
      kBad, outcome));
  EXPECT_EQ(FileBytes(host.rcs), used.rcs);
  EXPECT_EQ(ReadAsHost(host).projects, used.projects);
  EXPECT_EQ(FileBytes(LatestBackup(host) + L"\\operation.log").find("Product="), std::string::npos);
}

TEST_F(InstallTest, AnUnreadableCustomizationFileFailsItsInstance) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const FileHandle held = HoldOpen(host.rcs, GENERIC_READ | GENERIC_WRITE, 0);
  for (const wchar_t* command : kCommands) {
    EXPECT_TRUE(EndsWithBox(ProblemCode(command), Failed(host, L"Open RCS (Win32 32)"), kBad,
                            Run(command)));
  }
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallTest, TooLargeFileFailsItsInstance) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  PutFile(host.rcs, std::string(8'388'609, ' '));
  for (const wchar_t* command : kCommands) {
    EXPECT_TRUE(
        EndsWithBox(ProblemCode(command), Failed(host, L"RCS exceeds limit."), kBad, Run(command)));
  }
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallTest, UnreadableListFailsItsInstance) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const std::vector<std::byte> large(1'048'577);
  ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, host.ProjectsKey().c_str(), L"Item9", REG_BINARY,
                            large.data(), static_cast<DWORD>(large.size())),
            ERROR_SUCCESS);
  for (const wchar_t* command : kCommands) {
    EXPECT_TRUE(EndsWithBox(ProblemCode(command),
                            Failed(host, L"Registry value exceeds safe limit."), kBad,
                            Run(command)));
  }
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallStatusTest, AFailureIsLoggedWithItsInstance) {
  const MadeInstance first = MakeHost(UsedHost(1, 24));
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  const FileHandle held = HoldOpen(first.rcs, GENERIC_READ | GENERIC_WRITE, 0);
  ExpectStatus(
      10, Failed(first, L"Open RCS (Win32 32)") + HeaderOf(second) + std::wstring(kNotInstalled));
  EXPECT_FALSE(Exists(folders_.runtime));
  ExpectLogged(0, {});
  ASSERT_TRUE(EndsSilentlyWith(40, RunQuietly(L"--install")));
  ExpectLogged(
      1, {L"Installer failed | Error=Open RCS (Win32 32) GetLastError=32 GUID=" + first.guid});
}

TEST_F(InstallTest, RefusedDeploymentIsLoggedWithItsFile) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const std::wstring failed =
      L"Installer failed | Error=Runtime deployment failed; profile unchanged. GetLastError=0 "
      L"GUID=" +
      host.guid;
  const std::wstring package = L" Package=" + package_;
  ASSERT_TRUE(DeleteFileW(JoinPath(package_, L"Script\\Kestrune.pas").c_str()));
  ASSERT_TRUE(EndsSilentlyWith(40, RunQuietly(L"--install")));
  ExpectLogged(1, {L"Installer failed | Error=Cannot establish source last-write time: " +
                       JoinPath(package_, L"Script\\Kestrune.pas") + L" GetLastError=0" + package,
                   failed});
  const std::wstring form = JoinPath(package_, L"Script\\Kestrune_WaitForm.dfm");
  ASSERT_TRUE(DeleteFileW(form.c_str()));
  ASSERT_TRUE(EndsSilentlyWith(40, RunQuietly(L"--install")));
  ExpectLogged(1, {L"Installer failed | Error=Missing file of the package: " + form +
                       L" GetLastError=0" + package,
                   failed});
  MakePackage(package_, kLaterTime, "two");
  const FileHandle held = HoldOpen(Runtime(L"Kestrune.PrjScr"), GENERIC_READ, FILE_SHARE_READ);
  ASSERT_TRUE(EndsSilentlyWith(40, RunQuietly(L"--install")));
  ExpectLogged(1, {L"Installer failed | Error=Cannot lock target: " + Runtime(L"Kestrune.PrjScr") +
                       L" GetLastError=32" + package,
                   failed});
}

TEST_F(InstallTest, AProgramWithoutPackageIsLogged) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const std::wstring failed =
      L"Installer failed | Error=Runtime deployment failed; profile unchanged. GetLastError=0 "
      L"GUID=" +
      host.guid;
  const std::wstring program = Scratch(L"elsewhere\\Kestrune.exe");
  ASSERT_TRUE(TryCreateDirectories(Scratch(L"elsewhere")) && TryCopyOver(KestrunePath(), program));
  EXPECT_TRUE(EndsSilentlyWith(40, Finish(ProgramRun(program, L"--install --quiet"))));
  ExpectLogged(1, {L"Installer failed | Error=No package beside the program: " + program +
                       L" GetLastError=0 Package=",
                   failed});
}

TEST_F(InstallTest, EarlyFailureLeavesDeploymentToTheNext) {
  BoxInstance without_toolbar = UsedHost(1, 24);
  without_toolbar.toolbars = HostToolbars::None;
  const MadeInstance first = MakeHost(without_toolbar);
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  const RunOutcome outcome = Run(L"--update");
  EXPECT_TRUE(EndsWithBox(40, Failed(first, kNoAnchor) + Registered(second), kBad, outcome));
  EXPECT_TRUE(HasWorkingButton(second));
}

TEST_F(InstallTest, RefusedFileIsLeftToManualRegistration) {
  const std::pair<std::string, std::wstring> rows[] = {
      {ShortcutRecords(), L"Unknown RCS record: Change"},
      {"'x\r\nInstalled' a End\r\n", L"Unknown RCS record: x??Installed"},
      {std::string(500, 'x') + " a End\r\n",
       L"Unknown RCS record: " + std::wstring(180, L'x') + L"..."},
      {"Tree a End\r\nTree a End\r\n", L"Duplicate/invalid RCS identifier."},
      {"PL a Caption='open", L"Unclosed RCS quote."},
      {std::string("T\0r\0", 4), L"Unsupported RCS size/encoding."}};
  BoxInstance instance = UsedHost(1, 24);
  for (const auto& [rcs, error] : rows) {
    instance.rcs = rcs;
    const MadeInstance host = MakeHost(instance);
    const std::wstring text =
        Failed(host, error + L" Manual registration required; no profile change.");
    for (const wchar_t* command : kCommands) {
      EXPECT_TRUE(EndsWithBox(ProblemCode(command), text, kBad, Run(command)));
    }
    EXPECT_EQ(FileBytes(host.rcs), rcs);
    EXPECT_EQ(ReadAsHost(host).projects, instance.projects);
  }
  EXPECT_FALSE(Exists(folders_.runtime));
}

TEST_F(InstallTest, ExtraRecordsLetARefusedProfileThrough) {
  BoxInstance instance = UsedHost(1, 24);
  instance.rcs += ShortcutRecords();
  const MadeInstance host = MakeHost(instance);
  ExtraRecords(L"Change");
  const RunOutcome outcome = Run(L"--install");
  EXPECT_TRUE(EndsWithBox(0, Registered(host), kGood, outcome));
  EXPECT_TRUE(HasWorkingButton(host));
  EXPECT_NE(FileBytes(host.rcs).find(ShortcutRecords()), std::string::npos);
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--status")));
  ASSERT_TRUE(DeleteFileW(folders_.registration.c_str()));
  EXPECT_TRUE(EndsSilentlyWith(10, RunQuietly(L"--status")));
  ExtraRecords(L" Other , Change,End,P L");
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
  EXPECT_TRUE(HasNothingOfOurs(host));
}

TEST_F(InstallTest, OnlyUsersRegistrationFileLetsRecordsThrough) {
  BoxInstance instance = UsedHost(1, 24);
  instance.rcs += ShortcutRecords();
  const MadeInstance host = MakeHost(instance);
  const std::string text = Utf16WithMark(L"[Registration]\r\nExtraRecords=Change\r\n");
  for (const std::wstring& path : {folders_.settings, folders_.common_settings,
                                   folders_.common + L"\\Kestrune\\registration.ini"}) {
    PutFile(path, text);
    EXPECT_TRUE(EndsSilentlyWith(40, RunQuietly(L"--install"))) << Utf8FromWide(path);
    ASSERT_TRUE(DeleteFileW(path.c_str()));
  }
  EXPECT_EQ(FileBytes(host.rcs), instance.rcs);
}

TEST_F(InstallTest, AnEmptyCustomizationFileIsRegisteredToo) {
  BoxInstance instance = UsedHost(1, 24);
  instance.rcs.clear();
  const MadeInstance host = MakeHost(instance);
  const RunOutcome outcome = Run(L"--install");
  EXPECT_TRUE(
      EndsWithBox(0, Transacted(host, L"Installed/updated and validated.", L"captured empty RCS"),
                  kGood, outcome));
  EXPECT_TRUE(HasWorkingButton(host));
}

TEST_F(InstallTest, BothToolbarsNeedAVersion) {
  BoxInstance instance = UsedHost(1, 24);
  instance.toolbars = HostToolbars::Both;
  instance.version = L"unknown";
  const MadeInstance unknown = MakeHost(instance);
  EXPECT_TRUE(EndsWithBox(40, Failed(unknown, kNoAnchor), kBad, Run(L"--install")));
  EXPECT_TRUE(
      EndsWithBox(10, HeaderOf(unknown) + std::wstring(kNotInstalled), kBad, Run(L"--status")));
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
  EXPECT_FALSE(Exists(folders_.runtime));
  for (const auto& [version, toolbar] :
       {std::pair(L"17.0", "TLPCBToolbar"), {L"18.0", "TopBarPCB"}}) {
    instance.version = version;
    const MadeInstance host = MakeHost(instance);
    ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
    EXPECT_EQ(OurButtons(ReadAsHost(host)).at(0).toolbar, toolbar);
  }
}

TEST_F(InstallTest, TheOneSpecialBuildGetsItsImage) {
  BoxInstance instance = UsedHost(1, 26);
  instance.version = L"26.9.1.9";
  instance.display_name = L"Altium Designer Develop";
  const MadeInstance host = MakeHost(instance);
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  EXPECT_EQ(WidenBytes(OurButtons(ReadAsHost(host)).at(0).image),
            Runtime(L"odbpp-toolbar-ad26-16.png"));
  // Other editions and builds share a registration; the next run moves it to their image.
  SetEntryText(host, L"DisplayName", L"Altium Designer");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--update")));
  EXPECT_EQ(WidenBytes(OurButtons(ReadAsHost(host)).at(0).image),
            Runtime(L"odbpp-toolbar-activebar.png"));
}

TEST_F(InstallTest, TheHintNamesTheUsersApplication) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const std::wstring application = Scratch(L"app.exe");
  PutFile(application, "x");
  Settings(L"[Target]\nEnabled=1\nProgramName=Viewer\nExecutablePath=" + application + L"\n");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  EXPECT_EQ(OurButtons(ReadAsHost(host)).at(0).hint, "Export PCB through Kestrune -> Viewer");
  // Another hint is no reason to call it not installed, but an update brings it in.
  ASSERT_TRUE(DeleteFileW(folders_.settings.c_str()));
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--status")));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--update")));
  EXPECT_EQ(OurButtons(ReadAsHost(host)).at(0).hint, "Export PCB through Kestrune");
}

TEST_F(InstallTest, HintAndLogUseTheCodePage) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  SetEntryText(host, L"DisplayVersion", L"24.1 \x00E4 \x540D");
  const std::wstring application = Scratch(L"app.exe");
  PutFile(application, "x");
  const std::wstring settings =
      L"[Target]\nEnabled=1\nExecutablePath=" + application + L"\nProgramName=";
  Settings(settings + L"Vi\x00E4wer\n");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  EXPECT_EQ(OurButtons(ReadAsHost(host)).at(0).hint, "Export PCB through Kestrune -> Vi\xE4wer");
  // The log may replace characters; the button's hint must not.
  EXPECT_NE(FileBytes(LatestBackup(host) + L"\\operation.log").find(" Version=24.1 \xE4 ? GUID="),
            std::string::npos);
  Settings(settings + L"\x540D\n");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--update")));
  EXPECT_EQ(OurButtons(ReadAsHost(host)).at(0).hint, "Export PCB through Kestrune");
}

TEST_F(InstallTest, RunningHostStopsAllCommandsButStatus) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  for (const wchar_t* name : {L"DXP.exe", L"x2.EXE"}) {
    const RunningAs running(Scratch(name));
    const Snapshot before = TakeSnapshot();
    for (const wchar_t* command : {L"--install", L"--update", L"--uninstall"}) {
      const std::wstring text =
          L"Close all Altium instances before changing shared runtime or registration.";
      EXPECT_TRUE(EndsWithBox(30, text, kBad, Run(command)));
      ExpectLogged(1, {L"Installer failed | Error=" + text + L" GetLastError=0"});
    }
    EXPECT_TRUE(
        EndsWithBox(10, HeaderOf(host) + std::wstring(kNotInstalled), kBad, Run(L"--status")));
    EXPECT_EQ(CompareSnapshots(before, TakeSnapshot()), std::vector<std::string>{});
  }
  const RunningAs other(Scratch(L"dxp2.exe"));
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
}

TEST_F(InstallTest, HostStartedMeanwhileStopsLaterInstances) {
  const MadeInstance first = MakeHost(UsedHost(1, 24));
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  // The deployment takes long enough for a host to start: one large file of the package.
  PutFile(JoinPath(package_, L"Runtime\\Bridge.OutJob"), std::string(200U << 20U, 'x'));
  ProgramRun run(KestrunePath(), L"--install --package " + Quoted(package_));
  ASSERT_TRUE(run.Started());
  for (int i = 0; i < 10'000 && !Exists(Runtime(L"Kestrune_WaitForm.dfm")); ++i) {
    Sleep(1);
  }
  const RunningAs running(Scratch(L"dxp.exe"));
  const std::wstring text = L"Altium started during preparation; aborting registration.";
  EXPECT_TRUE(EndsWithBox(40, Failed(first, text) + Failed(second, text), kBad,
                          Finish(std::move(run), 60'000)));
  EXPECT_TRUE(Exists(Runtime(L"Kestrune.pas")));
  EXPECT_TRUE(HasNothingOfOurs(first));
  EXPECT_TRUE(HasNothingOfOurs(second));
}

TEST_F(InstallTest, HostThatStartsMeanwhileStopsRemovalToo) {
  // Large files, so that the first instance's removal takes long enough for a host to start.
  std::vector<MadeInstance> hosts;
  for (unsigned number = 1; number <= 3; ++number) {
    BoxInstance large = UsedHost(number, 24);
    for (int i = 0; large.rcs.size() < 6'000'000; ++i) {
      const std::string n = std::to_string(i);
      large.rcs += "PL Own" + n + " Command='Own:Command" + n + "' Caption='Command " + n +
                   "' Image='C:\\Icons\\" + n + ".bmp' End\r\n";
    }
    hosts.push_back(MakeHost(large));
  }
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  const std::wstring backup = LatestBackup(hosts[0]);
  const std::string registered = FileBytes(hosts[2].rcs);
  ProgramRun run(KestrunePath(), L"--uninstall");
  ASSERT_TRUE(run.Started());
  // The first instance's backups are made after its own check for a running host.
  for (int i = 0; i < 10'000 && LatestBackup(hosts[0]) == backup; ++i) {
    Sleep(1);
  }
  const RunningAs running(Scratch(L"dxp.exe"));
  const RunOutcome outcome = Finish(std::move(run), 60'000);
  EXPECT_EQ(outcome.code, 40);
  ASSERT_EQ(outcome.boxes.size(), 1U);
  const std::wstring& report = outcome.boxes[0].text;
  EXPECT_TRUE(report.starts_with(Removed(hosts[0])));
  EXPECT_TRUE(report.ends_with(
      Failed(hosts[2], L"Altium started during preparation; aborting registration.")))
      << Utf8FromWide(report);
  EXPECT_EQ(FileBytes(hosts[2].rcs), registered);
}

TEST_F(InstallTest, AnErrorInDiscoveryEndsTheRun) {
  if (!RunsUnderWine()) {
    GTEST_SKIP() << "a path that Windows can say nothing about is known for Wine only";
  }
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  SetEntryText(host, L"DisplayIcon", L"\\\\.\\nothing\\X2.exe");
  for (const wchar_t* command : kCommands) {
    EXPECT_TRUE(EndsWithBox(40, L"status", kBad, Run(command)));
  }
  const std::string log = FileBytes(folders_.log);
  EXPECT_NE(log.find("] Stage: Installer failed | Error=status GetLastError="), std::string::npos);
  EXPECT_TRUE(
      log.ends_with(" Path=\\\\.\\nothing\\X2.exe GUID=" + Utf8FromWide(host.guid) + "\r\n"))
      << log;
}

TEST_F(InstallTest, ManyInstancesCostOneDeployment) {
  const MadeInstance first = MakeHost(UsedHost(1, 17));
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  // A package of unproven age only adds missing files: a second deployment is refused.
  package_ = Scratch(L"kestrunes\\package");
  MakePackage(package_, kPackageTime, "one");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  EXPECT_TRUE(HasWorkingButton(first));
  EXPECT_TRUE(HasWorkingButton(second));
  EXPECT_TRUE(EndsWithBox(40, Failed(first, kDeploymentFailed) + Failed(second, kDeploymentFailed),
                          kBad, Run(L"--install")));
}

TEST_F(InstallTest, UnreadablePackageFailsTheInstance) {
  if (!RunsUnderWine()) {
    GTEST_SKIP() << "a path that Windows can say nothing about is known for Wine only";
  }
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  package_ = L"\\\\.\\nothing";
  EXPECT_TRUE(EndsWithBox(40, Failed(host, L"status"), kBad, Run(L"--install")));
  EXPECT_TRUE(HasNothingOfOurs(host));
  const std::string log = FileBytes(folders_.log);
  EXPECT_NE(log.find("] Stage: Installer failed | Error=status GetLastError="), std::string::npos);
  EXPECT_NE(log.find(" GUID=" + Utf8FromWide(host.guid) + " Path=\\\\.\\nothing\\"),
            std::string::npos)
      << log;
}

/// Extends a file with zeros.
void Stretch(const std::wstring& path, LONGLONG size) {
  const FileHandle file = HoldOpen(path, GENERIC_WRITE, 0);
  LARGE_INTEGER end{};
  end.QuadPart = size;
  EXPECT_TRUE(SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) && SetEndOfFile(file.Get()));
}

TEST_F(InstallStatusTest, UnreadableToolbarDefinitionsHaveNoPlace) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  const std::wstring not_installed = HeaderOf(host) + std::wstring(kNotInstalled);
  {
    const FileHandle locked = HoldOpen(host.resource, GENERIC_READ, 0);
    ExpectStatus(10, not_installed);
    EXPECT_TRUE(EndsWithBox(40, Failed(host, kNoAnchor), kBad, Run(L"--install")));
  }
  constexpr LONGLONG kLargest = 64 << 20;
  Stretch(host.resource, kLargest);
  ExpectStatus(0, HeaderOf(host) + L"Installed\n");
  Stretch(host.resource, kLargest + 1);
  ExpectStatus(10, not_installed);
  ASSERT_TRUE(DeleteFileW(host.resource.c_str()));
  ExpectStatus(10, not_installed);
  // Removing needs no anchor.
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
  EXPECT_TRUE(HasNothingOfOurs(host));
}

TEST_F(InstallTest, FailedDeploymentLeavesTheProfileUnchanged) {
  const MadeInstance first = MakeHost(UsedHost(1, 24));
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  const std::wstring text = Failed(first, kDeploymentFailed) + Failed(second, kDeploymentFailed);
  const std::string before = FileBytes(first.rcs);
  ASSERT_TRUE(DeleteFileW(JoinPath(package_, L"Runtime\\Bridge.OutJob").c_str()));
  EXPECT_TRUE(EndsWithBox(40, text, kBad, Run(L"--install")));
  EXPECT_EQ(FileBytes(first.rcs), before);
  EXPECT_TRUE(HasNothingOfOurs(first));
  // The files before the missing one have been deployed.
  EXPECT_EQ(NamesIn(folders_.runtime),
            (std::vector<std::wstring>{L"Kestrune.PrjScr", L"Kestrune.exe",
                                       L"Kestrune_WaitForm.dfm", L"Kestrune_WaitForm.pas"}));
  package_ = Scratch(L"no such package");
  EXPECT_TRUE(EndsWithBox(40, text, kBad, Run(L"--install")));
  // A common mistake: the trailing backslash escapes the quote.
  EXPECT_TRUE(EndsWithBox(
      40, text, kBad,
      RunKestrune(L"--install --package \"" + Scratch(L"package") + L"\\\" --quiet\"")));
}

TEST_F(InstallTest, OpenRuntimeFileFailsOnlyWhenOutdated) {
  MakeHost(UsedHost(1, 24));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  const FileHandle held =
      HoldOpen(Runtime(L"Kestrune.PrjScr"), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  const FileHandle locked = HoldOpen(Runtime(L"Bridge.OutJob"), GENERIC_READ, FILE_SHARE_READ);
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  MakePackage(package_, kLaterTime, "two");
  EXPECT_TRUE(EndsSilentlyWith(40, RunQuietly(L"--install")));
  EXPECT_EQ(FileBytes(Runtime(L"Bridge.OutJob")), "[OutputJobFile]\r\nVersion=1.0\r\none");
}

TEST_F(InstallTest, UpdateReplacesAllOlderPackageNone) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  MakePackage(package_, kLaterTime, "two");
  const RunOutcome outcome = Run(L"--update");
  EXPECT_TRUE(EndsWithBox(0, Registered(host), kGood, outcome));
  for (const std::wstring& name : RuntimeFiles()) {
    if (name != L"Kestrune.exe") {
      EXPECT_TRUE(FileBytes(Runtime(name)).ends_with("two")) << Utf8FromWide(name);
      EXPECT_EQ(TimeOf(Runtime(name)), kLaterTime) << Utf8FromWide(name);
    }
  }
  MakePackage(package_, kPackageTime, "three");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--update")));
  for (const std::wstring& name : RuntimeFiles()) {
    EXPECT_FALSE(FileBytes(Runtime(name)).ends_with("three")) << Utf8FromWide(name);
  }
}

TEST_F(InstallTest, PackageIsFoundFiveFoldersAbove) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const struct {
    const wchar_t* folder;
    int code;
  } rows[] = {{L"package", 0},
              {L"package\\1\\2\\3\\4\\5", 0},
              {L"package\\1\\2\\3\\4\\5\\6", 40},
              {L"elsewhere", 40}};
  for (const auto& row : rows) {
    const std::wstring program = Scratch(JoinPath(row.folder, L"Kestrune.exe"));
    ASSERT_TRUE(TryCreateDirectories(std::wstring(ParentPath(program))) &&
                TryCopyOver(KestrunePath(), program));
    ASSERT_TRUE(RemoveTree(folders_.runtime));
    PutFile(host.rcs, UsedHost(1, 24).rcs);
    EXPECT_TRUE(EndsSilentlyWith(row.code, Finish(ProgramRun(program, L"--install --quiet"))))
        << Utf8FromWide(row.folder);
  }
}

TEST_F(InstallTest, DeployedProgramCanUpdateFromPackage) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  MakePackage(package_, kLaterTime, "two");
  EXPECT_TRUE(
      EndsSilentlyWith(0, Finish(ProgramRun(Runtime(L"Kestrune.exe"),
                                            L"--update --quiet --package " + Quoted(package_)))));
  EXPECT_TRUE(FileBytes(Runtime(L"Kestrune.pas")).ends_with("two"));
  EXPECT_TRUE(HasWorkingButton(host));
  ExpectLogged(1, {L"Installer note | The running program is the deployed one and was not "
                   L"replaced. Package=" +
                   package_});
}

TEST_F(InstallTest, UserNamedLikeProductGetsUpdates) {
  const std::wstring home = Scratch(L"Kestrunes");
  MadeInstance host = MakeHost(UsedHost(1, 24));
  const MovedProfile moved(home);
  MoveHost(host, home + L"\\AppData\\Roaming");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  MakePackage(package_, kLaterTime, "two");
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--update")));
  EXPECT_TRUE(
      FileBytes(home + L"\\AppData\\Local\\Kestrune\\Runtime\\Kestrune.pas").ends_with("two"));
}

TEST_F(InstallTest, PathOutsideTheCodePageIsRefused) {
  MakeHost(UsedHost(1, 24));
  const MovedProfile moved(Scratch(L"\x540D\x524D"));
  for (const wchar_t* command : kCommands) {
    EXPECT_TRUE(EndsWithBox(
        40, L"Runtime path cannot be represented safely by the existing DelphiScript runtime.",
        kBad, Run(command)));
  }
  EXPECT_FALSE(Exists(Scratch(L"\x540D\x524D\\AppData\\Local\\Kestrune\\Runtime")));
  EXPECT_NE(
      FileBytes(Scratch(L"\x540D\x524D\\AppData\\Local\\Kestrune\\Logs\\bridge.log"))
          .find("] Stage: Installer failed | Error=Runtime path cannot be represented safely by "
                "the existing DelphiScript runtime. GetLastError=0\r\n"),
      std::string::npos);
}

TEST_F(InstallTest, SpecialLettersInTheUsersNameWork) {
  const std::wstring home = Scratch(L"O'H\x00E4ra");
  const BoxInstance instance = UsedHost(1, 24);
  MadeInstance host = MakeHost(instance);
  const MovedProfile moved(home);
  MoveHost(host, home + L"\\AppData\\Roaming");
  const RunOutcome outcome = Run(L"--install");
  EXPECT_TRUE(EndsWithBox(0, Registered(host), kGood, outcome));
  EXPECT_TRUE(HasWorkingButton(host));
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--status")));
}

/// Profiles on a server that is gone: through a drive letter, and by its name.
constexpr const wchar_t* kVanishedProfiles[] = {L"Q:\\users\\user",
                                                L"\\\\server.invalid\\profiles\\user"};

TEST_F(InstallTest, MissingProfileShareIsNamed) {
  MadeInstance host = MakeHost(UsedHost(1, 24));
  host.profile.clear();
  host.branch.clear();
  const std::wstring missing =
      Skipped(host, L"Missing or ambiguous profile/registry instance for " + host.guid +
                        L" (executable/profile must be verified).");
  const std::wstring unreadable =
      Skipped(host, L"Cannot read Altium profiles. (executable/profile must be verified).");
  for (const wchar_t* const profile : kVanishedProfiles) {
    const MovedProfile moved(profile);
    for (const wchar_t* const command : kCommands) {
      const Snapshot before = TakeSnapshot();
      const RunOutcome outcome = Run(command);
      // Some systems distinguish a server that is gone from a folder that is absent.
      EXPECT_TRUE(EndsWithBox(ProblemCode(command), missing, kBad, outcome) ||
                  EndsWithBox(ProblemCode(command), unreadable, kBad, outcome));
      EXPECT_EQ(CompareSnapshots(before, TakeSnapshot()), std::vector<std::string>{});
    }
  }
}

TEST_F(InstallTest, TwoRunsAtOnceLeaveOneButton) {
  std::vector<MadeInstance> hosts;
  for (unsigned number = 1; number <= 8; ++number) {
    hosts.push_back(MakeHost(UsedHost(number, 24)));
  }
  const std::wstring line = L"--install --quiet --package " + Quoted(package_);
  for (int round = 0; round < 3; ++round) {
    ProgramRun first(KestrunePath(), line);
    ProgramRun second(KestrunePath(), line);
    for (ProgramRun* const run : {&first, &second}) {
      const int code = run->WaitForExit(60'000).value_or(RunOutcome::kNeverEnded);
      EXPECT_TRUE(code == 0 || code == 40) << code;
    }
    // A run that came too late for an instance left it to the other one; the next run checks this.
    EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
    for (const MadeInstance& host : hosts) {
      EXPECT_TRUE(HasWorkingButton(host));
      EXPECT_EQ(ReadAsHost(host).projects.size(), UsedHost(1, 24).projects.size() + 1);
    }
    EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
    for (const MadeInstance& host : hosts) {
      EXPECT_TRUE(HasNothingOfOurs(host));
      EXPECT_EQ(ReadAsHost(host).projects, UsedHost(1, 24).projects);
    }
    ASSERT_TRUE(RemoveTree(folders_.runtime));
  }
}

}  // namespace
}  // namespace kestrune
