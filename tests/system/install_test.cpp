// The four installer commands as a user or a setup program starts them: one run for each exit code
// and each artefact.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>

#include "common/text/text.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/remove_tree_win32.h"

namespace kestrune {
namespace {

constexpr unsigned kGood = MB_ICONINFORMATION;
constexpr unsigned kBad = MB_ICONWARNING;

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
  std::erase(names, L"Kestrune.exe");
  for (const std::wstring& name : names) {
    EXPECT_EQ(TimeOf(Runtime(name)), kPackageTime) << Utf8FromWide(name);
  }
  EXPECT_EQ(FileBytes(Runtime(L"Kestrune.pas")), "{ " + Utf8FromWide(folders_.runtime) +
                                                     " }\r\n{ " + Utf8FromWide(folders_.temporary) +
                                                     " }\r\nProcedure RunKestrune;\r\none");
}

TEST_F(InstallTest, StatusUpdateAndRemovalFollowAnInstallation) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const auto expect_status = [&](int code, const std::wstring& text) {
    EXPECT_TRUE(
        EndsWithBox(code, HeaderOf(host) + text, code == 0 ? kGood : kBad, Run(L"--status")));
  };
  expect_status(10, L"Not installed / registration requires repair\n");
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  expect_status(0, L"Installed\n");
  MakePackage(package_, kLaterTime, "two");
  // Of the deployed program all files but itself are replaced.
  const RunOutcome update =
      Finish(ProgramRun(Runtime(L"Kestrune.exe"), L"--update --package " + Quoted(package_)));
  EXPECT_TRUE(EndsWithBox(0, Registered(host), kGood, update));
  EXPECT_TRUE(FileBytes(Runtime(L"Kestrune.pas")).ends_with("two"));
  ExpectLogged(1, {L"Installer note | The running program is the deployed one and was not "
                   L"replaced. Package=" +
                   package_});
  const RunOutcome removal = Run(L"--uninstall");
  EXPECT_TRUE(EndsWithBox(0, Removed(host), kGood, removal));
  EXPECT_TRUE(HasNothingOfOurs(host));
  EXPECT_EQ(NamesIn(folders_.runtime).size(), RuntimeFiles().size());
}

TEST_F(InstallTest, EachProblemHasItsCode) {
  EXPECT_TRUE(EndsWithBox(20, L"No Altium instance found.", kBad, Run(L"--install")));
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  EXPECT_TRUE(EndsSilentlyWith(20, RunQuietly(L"--status", L"--major 25")));
  {
    const FileHandle held = HoldOpen(host.rcs, GENERIC_READ | GENERIC_WRITE, 0);
    EXPECT_TRUE(EndsWithBox(40, Failed(host, L"Open RCS (Win32 32)"), kBad, Run(L"--uninstall")));
  }
  const RunningAs running(Scratch(L"DXP.exe"));
  EXPECT_TRUE(
      EndsWithBox(30, L"Close all Altium instances before changing shared runtime or registration.",
                  kBad, Run(L"--update")));
}

TEST_F(InstallTest, ReportFileHoldsTextOfBox) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  SetEntryText(host, L"DisplayVersion", L"24.1 \x540D");
  const std::wstring report = Scratch(L"rep\x00F6rt.txt");
  const RunOutcome outcome = Run(L"--install", L"--report " + Quoted(report));
  ASSERT_EQ(outcome.boxes.size(), 1U);
  const std::wstring& box = outcome.boxes[0].text;
  EXPECT_TRUE(box.starts_with(L"Altium Designer 24.1 \x540D\nGUID: ")) << Utf8FromWide(box);
  EXPECT_EQ(FileBytes(report), "\xEF\xBB\xBF" + Utf8FromWide(WithWindowsLineEnds(box)));
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--status", L"--report " + Quoted(report))));
  EXPECT_TRUE(FileBytes(report).ends_with("\r\nInstalled\r\n"));
}

TEST_F(InstallTest, InvalidLineWritesNoReport) {
  const std::wstring report = Scratch(L"report.txt");
  EXPECT_EQ(Run(L"--status", L"--quiet --report " + Quoted(report) + L" --bogus").code, 2);
  EXPECT_FALSE(Exists(report));
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
    // A run that was too late for an instance left it to the other run; the next run checks this.
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
