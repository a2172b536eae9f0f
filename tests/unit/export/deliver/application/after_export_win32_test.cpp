#include "export/deliver/application/after_export_win32.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "common/failure/failure.h"
#include "common/failure/error_mode_win32.h"
#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/export/mailslot_win32.h"
#include "tests/support/export/recorded_application_win32.h"
#include "tests/support/export/refused_call_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

constexpr wchar_t kZip[] = L"C:\\Out\\Main.zip";

/// Makes calls with the results that a test sets, and records them.
class ScriptedDesktop : public Desktop {
 public:
  using Desktop::Desktop;

  DWORD create_error = 0;
  DWORD resume_error = 0;
  DWORD shell_error = 0;
  bool really_create = false;
  std::vector<DWORD> allowed;
  std::vector<DWORD> allowed_before_resume;
  std::size_t calls_before_allowed = 0;
  HANDLE shell_process = nullptr;

  std::vector<std::wstring> calls;
  /// The error mode at each start.
  std::vector<UINT> error_modes;
  SHELLEXECUTEINFOW execution{};
  std::wstring parameters;
  KernelHandle suspended;

  BOOL CreateSuspended(const wchar_t* application, wchar_t* command_line, const wchar_t* directory,
                       PROCESS_INFORMATION& process) override {
    calls.push_back(std::wstring(L"create ") + application + L"|" + command_line + L"|" +
                    directory);
    error_modes.push_back(GetErrorMode());
    SetLastError(create_error);
    process.dwProcessId = 4242;
    return create_error == 0 &&
           (!really_create ||
            Desktop::CreateSuspended(application, command_line, directory, process));
  }
  void AllowForeground(DWORD process_id) override {
    calls_before_allowed = calls.size();
    allowed.push_back(process_id);
  }
  DWORD Resume(HANDLE thread) override {
    allowed_before_resume = allowed;
    calls.emplace_back(L"resume");
    if (really_create) {
      suspended.Reset(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE,
                                  GetProcessIdOfThread(thread)));
    }
    SetLastError(resume_error);
    return resume_error == 0 ? 1 : static_cast<DWORD>(-1);
  }
  BOOL Execute(SHELLEXECUTEINFOW& info) override {
    calls.push_back(std::wstring(L"shell ") + info.lpVerb + L"|" + info.lpFile + L"|" +
                    info.lpDirectory);
    execution = info;
    parameters = info.lpParameters == nullptr ? L"<none>" : info.lpParameters;
    info.hProcess = shell_process;
    error_modes.push_back(GetErrorMode());
    SetLastError(shell_error);
    return shell_error == 0;
  }
};

class AfterExportTest : public ExportTest {
 protected:
  /// Returns settings that enable a file as the application.
  UserSettings Viewer() const {
    UserSettings settings;
    settings.enabled = true;
    settings.program_name = L"Viewer";
    settings.executable_path = Scratch(L"v w\\viewer.exe");
    settings.arguments = L"%ODBPP_NAME%";
    PutFile(settings.executable_path, "no program");
    return settings;
  }

  UserSettings SettingsFor(const RecordedApplication& application) const {
    UserSettings settings = Viewer();
    settings.executable_path = application.path;
    return settings;
  }

  AfterExportResult HandOver(const UserSettings& settings, std::optional<std::int64_t> space = {}) {
    return HandToApplication({system_, desktop_}, settings, kZip, space);
  }

  /// Expects that the application was not reached, for this reason.
  void ExpectNotStarted(const UserSettings& settings, const std::wstring& reason) {
    const AfterExportResult result = HandOver(settings);
    EXPECT_TRUE(result.configured);
    EXPECT_FALSE(result.delivered);
    EXPECT_EQ(result.error_text, reason);
  }

  ScriptedCalls system_;
  ScriptedDesktop desktop_;
};

TEST_F(AfterExportTest, DisabledApplicationIsLeftAlone) {
  UserSettings settings = Viewer();
  settings.enabled = false;
  const AfterExportResult result = HandOver(settings, 5);
  EXPECT_FALSE(result.configured);
  EXPECT_FALSE(result.delivered);
  EXPECT_EQ(result.program_name, L"Viewer");
  EXPECT_EQ(result.label, L"Export PCB through Kestrune");
  EXPECT_EQ(result.error_text, L"");
  EXPECT_TRUE(desktop_.calls.empty());
}

TEST_F(AfterExportTest, AMissingExecutableIsNamedExpanded) {
  const RecordedApplication application(Scratch(L"recorder"));
  RecordedApplication::Set(L"MARKER", Scratch(L"recorder"));
  UserSettings settings = Viewer();
  for (const wchar_t* path : {L"%KESTRUNE_CHILD_MARKER%\\none.exe", L"%KESTRUNE_CHILD_MARKER%", L"",
                              L"%KESTRUNE_UNDEFINED%\\a.exe", L"Q:\\none.exe", L"C:\\a|b.exe"}) {
    settings.executable_path = path;
    std::wstring expanded;
    ASSERT_TRUE(ExpandEnvironment(RealCalls(), path, expanded));
    ExpectNotStarted(settings,
                     L"The configured after-export executable does not exist: " + expanded);
  }
  EXPECT_TRUE(desktop_.calls.empty());
}

TEST_F(AfterExportTest, PathThatCannotBeExpandedIsUnchanged) {
  UserSettings settings = Viewer();
  settings.executable_path = L"%SystemDrive%\\none.exe";
  system_.before = RefusedCall("ExpandText", L"", ERROR_ACCESS_DENIED);
  ExpectNotStarted(
      settings, L"The configured after-export executable does not exist: %SystemDrive%\\none.exe");
}

TEST_F(AfterExportTest, ForegroundIsAllowedBeforeProcessRuns) {
  EXPECT_TRUE(HandOver(Viewer()).delivered);
  const std::vector<DWORD> once = {4242};
  EXPECT_EQ(desktop_.allowed, once);
  EXPECT_EQ(desktop_.allowed_before_resume, once);
  EXPECT_EQ(desktop_.calls_before_allowed, 1U);
}

TEST_F(AfterExportTest, ProcessGetsQuotedPathLineAndFolder) {
  const UserSettings settings = Viewer();
  const AfterExportResult result = HandOver(settings, 12345);
  EXPECT_TRUE(result.configured);
  EXPECT_TRUE(result.delivered);
  EXPECT_EQ(result.label, L"Export PCB through Kestrune -> Viewer");
  EXPECT_EQ(result.error_text, L"");
  const std::wstring& path = settings.executable_path;
  EXPECT_EQ(desktop_.calls,
            (std::vector<std::wstring>{L"create " + path + L"|" + Quoted(path) + L" " + kIdentity +
                                           L" Main.zip -space:1.2345mil|" + Scratch(L"v w"),
                                       L"resume"}));
}

TEST_F(AfterExportTest, EmptyLineGivesQuotedPathAlone) {
  std::wstring error_text;
  EXPECT_TRUE(StartApplication(L"C:\\a b\\c.exe", L"", desktop_, error_text));
  EXPECT_EQ(desktop_.calls.front(), L"create C:\\a b\\c.exe|\"C:\\a b\\c.exe\"|C:\\a b");
}

TEST_F(AfterExportTest, RelativePathStartsInItsFullFolder) {
  std::wstring error_text;
  EXPECT_TRUE(StartApplication(L"sub\\c.exe", L"x", desktop_, error_text));
  EXPECT_EQ(desktop_.calls.front(), L"create sub\\c.exe|sub\\c.exe x|" + FullPath(L"sub"));
}

TEST_F(AfterExportTest, FailedStartIsReportedWithItsCode) {
  desktop_.create_error = ERROR_BAD_EXE_FORMAT;
  ExpectNotStarted(
      Viewer(),
      L"The configured after-export application could not be started. Windows error: 193");
  EXPECT_EQ(desktop_.calls.size(), 1U);
}

TEST_F(AfterExportTest, ElevationGoesThroughTheShell) {
  desktop_.create_error = 740;
  const UserSettings settings = Viewer();
  EXPECT_TRUE(HandOver(settings).delivered);
  ASSERT_EQ(desktop_.calls.size(), 2U);
  EXPECT_EQ(desktop_.calls[1], L"shell open|" + settings.executable_path + L"|" + Scratch(L"v w"));
  EXPECT_EQ(desktop_.parameters, std::wstring(kIdentity) + L" Main.zip");
  EXPECT_EQ(desktop_.execution.cbSize, sizeof(SHELLEXECUTEINFOW));
  EXPECT_EQ(desktop_.execution.fMask, DWORD{SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC});
  EXPECT_EQ(desktop_.execution.nShow, SW_SHOWNORMAL);
  EXPECT_EQ(desktop_.execution.hwnd, nullptr);
}

TEST_F(AfterExportTest, ShellProcessHandleIsClosedWithoutParameters) {
  desktop_.create_error = 740;
  desktop_.shell_process = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::wstring error_text;
  EXPECT_TRUE(StartApplication(L"C:\\a.exe", L"", desktop_, error_text));
  EXPECT_EQ(desktop_.parameters, L"<none>");
  DWORD flags = 0;
  EXPECT_FALSE(GetHandleInformation(desktop_.shell_process, &flags));
}

TEST_F(AfterExportTest, RefusedElevationHasTheShellsCode) {
  desktop_.create_error = 740;
  desktop_.shell_error = ERROR_CANCELLED;
  ExpectNotStarted(Viewer(),
                   L"The configured after-export application requires elevation and could not be "
                   L"started. Windows error: 1223");
}

TEST_F(AfterExportTest, ProcessThatDoesNotResumeIsEnded) {
  const RecordedApplication application(Scratch(L"recorder"));
  desktop_.really_create = true;
  desktop_.resume_error = ERROR_ACCESS_DENIED;
  ExpectNotStarted(
      SettingsFor(application),
      L"The configured after-export application could not be started. Windows error: 5");
  ASSERT_TRUE(static_cast<bool>(desktop_.suspended));
  EXPECT_EQ(WaitForSingleObject(desktop_.suspended.Get(), 5000), WAIT_OBJECT_0);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeProcess(desktop_.suspended.Get(), &code));
  EXPECT_EQ(code, DWORD{ERROR_ACCESS_DENIED});
  EXPECT_FALSE(application.WasStarted());
}

TEST_F(AfterExportTest, ElevationAtResumeGoesThroughTheShell) {
  const RecordedApplication application(Scratch(L"recorder"));
  desktop_.really_create = true;
  desktop_.resume_error = 740;
  EXPECT_TRUE(HandOver(SettingsFor(application)).delivered);
  EXPECT_EQ(desktop_.calls.size(), 3U);
}

/// Records how often a thread was suspended when it was resumed.
class CountedSuspensions final : public Desktop {
 public:
  DWORD Resume(HANDLE thread) override {
    suspensions = Desktop::Resume(thread);
    return suspensions;
  }

  DWORD suspensions = 0;
};

TEST_F(AfterExportTest, ProcessHasEnvironmentButNoInheritedHandles) {
  const RecordedApplication application(Scratch(L"recorder"));
  RecordedApplication::Set(L"MARKER", L"marked \u0416");
  PutFile(Scratch(L"inheritable"), "x");
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  const FileHandle file(CreateFileW(Scratch(L"inheritable").c_str(), GENERIC_READ, FILE_SHARE_READ,
                                    &inheritable, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(static_cast<bool>(file));
  RecordedApplication::Set(L"HANDLE", Decimal(reinterpret_cast<std::uintptr_t>(file.Get())));
  CountedSuspensions desktop;
  UserSettings settings = SettingsFor(application);
  settings.arguments = L"\"%ODBPP%\" " + std::wstring(20'000, L'a');
  EXPECT_TRUE(HandToApplication({system_, desktop}, settings, L"C:\\\u0416 \xD83D\xDE00.zip", {})
                  .delivered);
  EXPECT_EQ(desktop.suspensions, 1U);
  const std::wstring record = application.NextRecord();
  // One of the process's own files may have the same handle value by chance.
  EXPECT_EQ(record.find(L"inheritable"), std::wstring::npos);
  EXPECT_TRUE(record.starts_with(L"Directory=" + std::wstring(ParentPath(application.path)) +
                                 L"\nMarker=marked \u0416\n"))
      << Utf8FromWide(record);
  EXPECT_TRUE(record.ends_with(L"\nStartupFlags=0\nCommandLine=" + Quoted(application.path) + L" " +
                               kIdentity + L" \"C:\\\u0416 \xD83D\xDE00.zip\" " +
                               std::wstring(20'000, L'a')));
}

TEST_F(AfterExportTest, ApplicationInheritsTheFormerErrorMode) {
  const ErrorMode ours(kNoSystemBoxes);
  ScriptedDesktop desktop(SEM_NOALIGNMENTFAULTEXCEPT);
  desktop.create_error = 740;
  EXPECT_TRUE(HandToApplication({system_, desktop}, Viewer(), kZip, std::nullopt).delivered);
  EXPECT_EQ(desktop.error_modes,
            (std::vector<UINT>{SEM_NOALIGNMENTFAULTEXCEPT, SEM_NOALIGNMENTFAULTEXCEPT}));
  EXPECT_EQ(GetErrorMode(), kNoSystemBoxes);
}

TEST_F(AfterExportTest, RunningCopyGetsLineInsteadOfStart) {
  const OwnMailslot slot;
  UserSettings settings = Viewer();
  settings.mailslot_name = slot.Name();
  EXPECT_TRUE(HandOver(settings, 50000).delivered);
  EXPECT_TRUE(desktop_.calls.empty());
  EXPECT_EQ(slot.Next(), Utf8FromWide(kIdentity) + " Main.zip -space:5mil");
}

TEST_F(AfterExportTest, MissingExecutableGetsNoMessage) {
  const OwnMailslot slot;
  UserSettings settings = Viewer();
  settings.executable_path = L"C:\\none.exe";
  settings.mailslot_name = slot.Name();
  EXPECT_FALSE(HandOver(settings).delivered);
  EXPECT_EQ(slot.Next(), std::nullopt);
}

TEST_F(AfterExportTest, NameWithoutListenerStartsAProcess) {
  UserSettings settings = Viewer();
  for (const wchar_t* name : {L"TAVORIN.Kestrune.4000000001", L"TAVORIN.Kestrune.1234abc", L"x"}) {
    settings.mailslot_name = name;
    desktop_.calls.clear();
    EXPECT_TRUE(HandOver(settings).delivered);
    EXPECT_EQ(desktop_.calls.size(), 2U);
  }
}

TEST_F(AfterExportTest, LineOutsideCodePageStartsAProcess) {
  if (GetACP() == CP_UTF8) {
    GTEST_SKIP() << "every character exists in this code page";
  }
  const OwnMailslot slot;
  UserSettings settings = Viewer();
  settings.mailslot_name = slot.Name();
  EXPECT_TRUE(HandToApplication({system_, desktop_}, settings, L"C:\\\u4E2D.zip", {}).delivered);
  ASSERT_EQ(desktop_.calls.size(), 2U);
  EXPECT_NE(desktop_.calls[0].find(L"\u4E2D.zip"), std::wstring::npos);
  EXPECT_EQ(slot.Next(), std::nullopt);
}

TEST_F(AfterExportTest, UnreadableSettingsAreNoneWithReason) {
  system_.before = RefusedCall("GetAttributes", folders_.common_settings, ERROR_NETNAME_DELETED);
  const AfterExportResult result = RunAfterExport({system_, desktop_}, kZip, std::nullopt);
  EXPECT_FALSE(result.configured);
  EXPECT_FALSE(result.delivered);
  EXPECT_EQ(result.error_text, L"status");
}

TEST_F(AfterExportTest, ExecutableWithUnknownStatusIsThrown) {
  const UserSettings settings = Viewer();
  // The label's check comes first and ignores the failure.
  system_.before = RefusedCall("GetAttributes", L"viewer.exe", ERROR_NETNAME_DELETED);
  try {
    HandOver(settings);
    FAIL() << "nothing was thrown";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.text, L"status");
    EXPECT_EQ(failure.code, DWORD{ERROR_NETNAME_DELETED});
  }
  EXPECT_TRUE(desktop_.calls.empty());
}

TEST_F(AfterExportTest, SettingsComeFromTheUsersFile) {
  Settings(L"[Target]\nEnabled=1\nProgramName=Viewer\nExecutablePath=C:\\none.exe\n");
  const AfterExportResult result = RunAfterExport({system_, desktop_}, kZip, std::nullopt);
  EXPECT_TRUE(result.configured);
  EXPECT_EQ(result.error_text,
            L"The configured after-export executable does not exist: C:\\none.exe");
}

}  // namespace
}  // namespace kestrune
