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
#include "tests/support/files_win32.h"
#include "tests/support/machine/unix_link_win32.h"
#include "tests/support/scripted_calls_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

constexpr wchar_t kZip[] = L"C:\\Out\\Main.zip";
constexpr wchar_t kTokens[] = L"-bridge:\"AltiumDesigner\" -bridge-version:\"0.2.3\"";

/// Sets an environment variable until the end of the scope; children inherit it.
class Variable {
 public:
  Variable(std::wstring name, const std::wstring& value) : name_(std::move(name)) {
    SetEnvironmentVariableW(name_.c_str(), value.c_str());
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;
  ~Variable() { SetEnvironmentVariableW(name_.c_str(), nullptr); }

 private:
  std::wstring name_;
};

/// Answers as told, and writes down what it was asked.
class ScriptedDesktop : public Desktop {
 public:
  using Desktop::Desktop;

  DWORD create_error = 0;
  DWORD resume_error = 0;
  DWORD shell_error = 0;
  bool really_create = false;
  std::vector<DWORD> allowed;
  std::vector<DWORD> allowed_before_resume;
  std::vector<std::wstring> order_before_allowed;
  HANDLE shell_process = nullptr;

  std::vector<std::wstring> asked;
  /// The error mode at each start.
  std::vector<UINT> error_modes;
  SHELLEXECUTEINFOW execution{};
  std::wstring parameters;
  KernelHandle suspended;

  BOOL CreateSuspended(const wchar_t* application, wchar_t* command_line, const wchar_t* directory,
                       PROCESS_INFORMATION& process) override {
    asked.push_back(std::wstring(L"create ") + application + L"|" + command_line + L"|" +
                    directory);
    error_modes.push_back(GetErrorMode());
    SetLastError(create_error);
    process.dwProcessId = 4242;
    return create_error == 0 &&
           (!really_create ||
            Desktop::CreateSuspended(application, command_line, directory, process));
  }
  void AllowForeground(DWORD process_id) override {
    order_before_allowed = asked;
    allowed.push_back(process_id);
  }
  DWORD Resume(HANDLE thread) override {
    allowed_before_resume = allowed;
    asked.emplace_back(L"resume");
    if (really_create) {
      suspended.Reset(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE,
                                  GetProcessIdOfThread(thread)));
    }
    SetLastError(resume_error);
    return resume_error == 0 ? 1 : static_cast<DWORD>(-1);
  }
  BOOL Execute(SHELLEXECUTEINFOW& info) override {
    asked.push_back(std::wstring(L"shell ") + info.lpVerb + L"|" + info.lpFile + L"|" +
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
  /// Settings that enable a file which stands for an executable.
  UserSettings Viewer() const {
    UserSettings settings;
    settings.enabled = true;
    settings.program_name = L"Viewer";
    settings.executable_path = Scratch(L"v w\\viewer.exe");
    settings.arguments = L"%ODBPP_NAME%";
    PutFile(settings.executable_path, "no program");
    return settings;
  }

  UserSettings Recorder() const {
    UserSettings settings = Viewer();
    settings.executable_path = TestProgramPath(L"child_recorder");
    return settings;
  }

  std::wstring Record() const {
    for (int i = 0; i < 500 && !Exists(Scratch(L"record")); ++i) {
      Sleep(20);
    }
    return WideFromUtf16Le(FileBytes(Scratch(L"record")));
  }

  ScriptedCalls system_;
  ScriptedDesktop calls_;
};

TEST_F(AfterExportTest, NothingHappensWhenTheSettingsDoNotEnableIt) {
  UserSettings settings = Viewer();
  settings.enabled = false;
  const AfterExportResult result = HandToApplication({system_, calls_}, settings, kZip, 5);
  EXPECT_FALSE(result.configured);
  EXPECT_FALSE(result.delivered);
  EXPECT_EQ(result.program_name, L"Viewer");
  EXPECT_EQ(result.label, L"Export PCB through Kestrune");
  EXPECT_EQ(result.error_text, L"");
  EXPECT_TRUE(calls_.asked.empty());
}

TEST_F(AfterExportTest, AMissingExecutableIsNamedExpanded) {
  const Variable folder(L"KESTRUNE_TEST_FOLDER", Scratch(L"v w"));
  UserSettings settings = Viewer();
  for (const wchar_t* path : {L"%KESTRUNE_TEST_FOLDER%\\none.exe", L"%KESTRUNE_TEST_FOLDER%", L"",
                              L"%KESTRUNE_UNDEFINED%\\a.exe", L"Q:\\none.exe", L"C:\\a|b.exe"}) {
    settings.executable_path = path;
    std::wstring expanded;
    ASSERT_TRUE(ExpandEnvironment(RealCalls(), path, expanded));
    const AfterExportResult result =
        HandToApplication({system_, calls_}, settings, kZip, std::nullopt);
    EXPECT_TRUE(result.configured);
    EXPECT_FALSE(result.delivered);
    EXPECT_EQ(result.error_text,
              L"The configured after-export executable does not exist: " + expanded);
  }
  EXPECT_TRUE(calls_.asked.empty());
}

TEST_F(AfterExportTest, APathThatWindowsDoesNotExpandIsUsedAsWritten) {
  UserSettings settings = Viewer();
  settings.executable_path = L"%SystemDrive%\\none.exe";
  system_.before = [](const SystemCall& call) {
    return call.name == "ExpandText" ? std::optional<DWORD>(ERROR_ACCESS_DENIED) : std::nullopt;
  };
  EXPECT_EQ(HandToApplication({system_, calls_}, settings, kZip, std::nullopt).error_text,
            L"The configured after-export executable does not exist: %SystemDrive%\\none.exe");
}

TEST_F(AfterExportTest, AProcessMayComeToTheForegroundBeforeItRuns) {
  EXPECT_TRUE(HandToApplication({system_, calls_}, Viewer(), kZip, std::nullopt).delivered);
  const std::vector<DWORD> once = {4242};
  EXPECT_EQ(calls_.allowed, once);
  EXPECT_EQ(calls_.allowed_before_resume, once);
  ASSERT_EQ(calls_.order_before_allowed.size(), 1U);
  EXPECT_TRUE(calls_.order_before_allowed.front().starts_with(L"create "));
}

TEST_F(AfterExportTest, AStartedProcessGetsQuotedPathLineAndItsOwnFolder) {
  const UserSettings settings = Viewer();
  const AfterExportResult result = HandToApplication({system_, calls_}, settings, kZip, 12345);
  EXPECT_TRUE(result.configured);
  EXPECT_TRUE(result.delivered);
  EXPECT_EQ(result.label, L"Export PCB through Kestrune -> Viewer");
  EXPECT_EQ(result.error_text, L"");
  const std::wstring& path = settings.executable_path;
  EXPECT_EQ(calls_.asked,
            (std::vector<std::wstring>{L"create " + path + L"|" + Quoted(path) + L" " + kTokens +
                                           L" Main.zip -space:1.2345mil|" + Scratch(L"v w"),
                                       L"resume"}));
}

TEST_F(AfterExportTest, WithoutALineTheCommandLineIsTheQuotedPathAlone) {
  std::wstring error_text;
  EXPECT_TRUE(StartApplication(L"C:\\a b\\c.exe", L"", calls_, error_text));
  EXPECT_EQ(calls_.asked.front(), L"create C:\\a b\\c.exe|\"C:\\a b\\c.exe\"|C:\\a b");
}

TEST_F(AfterExportTest, ARelativePathStartsInTheFolderThatItMeans) {
  std::wstring error_text;
  EXPECT_TRUE(StartApplication(L"sub\\c.exe", L"x", calls_, error_text));
  EXPECT_EQ(calls_.asked.front(), L"create sub\\c.exe|sub\\c.exe x|" + FullPath(L"sub"));
}

TEST_F(AfterExportTest, AStartErrorIsToldWithItsCode) {
  calls_.create_error = ERROR_BAD_EXE_FORMAT;
  const AfterExportResult result =
      HandToApplication({system_, calls_}, Viewer(), kZip, std::nullopt);
  EXPECT_TRUE(result.configured);
  EXPECT_FALSE(result.delivered);
  EXPECT_EQ(result.error_text,
            L"The configured after-export application could not be started. Windows error: 193");
  EXPECT_EQ(calls_.asked.size(), 1U);
}

TEST_F(AfterExportTest, WhatNeedsElevationGoesThroughTheShell) {
  calls_.create_error = 740;
  const UserSettings settings = Viewer();
  EXPECT_TRUE(HandToApplication({system_, calls_}, settings, kZip, std::nullopt).delivered);
  ASSERT_EQ(calls_.asked.size(), 2U);
  EXPECT_EQ(calls_.asked[1], L"shell open|" + settings.executable_path + L"|" + Scratch(L"v w"));
  EXPECT_EQ(calls_.parameters, std::wstring(kTokens) + L" Main.zip");
  EXPECT_EQ(calls_.execution.cbSize, sizeof(SHELLEXECUTEINFOW));
  EXPECT_EQ(calls_.execution.fMask, DWORD{SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC});
  EXPECT_EQ(calls_.execution.nShow, SW_SHOWNORMAL);
  EXPECT_EQ(calls_.execution.hwnd, nullptr);
}

TEST_F(AfterExportTest, TheShellGetsNoParametersForAnEmptyLine) {
  calls_.create_error = 740;
  std::wstring error_text;
  EXPECT_TRUE(StartApplication(L"C:\\a.exe", L"", calls_, error_text));
  EXPECT_EQ(calls_.parameters, L"<none>");
}

TEST_F(AfterExportTest, TheProcessHandleOfTheShellIsClosed) {
  calls_.create_error = 740;
  calls_.shell_process = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::wstring error_text;
  EXPECT_TRUE(StartApplication(L"C:\\a.exe", L"", calls_, error_text));
  DWORD flags = 0;
  EXPECT_FALSE(GetHandleInformation(calls_.shell_process, &flags));
}

TEST_F(AfterExportTest, ARefusedElevationCarriesTheShellsCode) {
  calls_.create_error = 740;
  calls_.shell_error = ERROR_CANCELLED;
  const AfterExportResult result =
      HandToApplication({system_, calls_}, Viewer(), kZip, std::nullopt);
  EXPECT_FALSE(result.delivered);
  EXPECT_EQ(result.error_text,
            L"The configured after-export application requires elevation and could not be started. "
            L"Windows error: 1223");
}

TEST_F(AfterExportTest, AProcessThatDoesNotResumeIsEndedWithTheErrorsCode) {
  calls_.really_create = true;
  calls_.resume_error = ERROR_ACCESS_DENIED;
  const Variable record(L"KESTRUNE_CHILD_RECORD", Scratch(L"record"));
  const AfterExportResult result =
      HandToApplication({system_, calls_}, Recorder(), kZip, std::nullopt);
  EXPECT_FALSE(result.delivered);
  EXPECT_EQ(result.error_text,
            L"The configured after-export application could not be started. Windows error: 5");
  ASSERT_TRUE(static_cast<bool>(calls_.suspended));
  EXPECT_EQ(WaitForSingleObject(calls_.suspended.Get(), 5000), WAIT_OBJECT_0);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeProcess(calls_.suspended.Get(), &code));
  EXPECT_EQ(code, DWORD{ERROR_ACCESS_DENIED});
  EXPECT_FALSE(Exists(Scratch(L"record")));
}

TEST_F(AfterExportTest, AProcessThatDoesNotResumeForWantOfElevationGoesThroughTheShell) {
  calls_.really_create = true;
  calls_.resume_error = 740;
  EXPECT_TRUE(HandToApplication({system_, calls_}, Recorder(), kZip, std::nullopt).delivered);
  EXPECT_EQ(calls_.asked.size(), 3U);
}

TEST_F(AfterExportTest, ARealChildSeesLineFolderAndEnvironmentButNoHandle) {
  const Variable record(L"KESTRUNE_CHILD_RECORD", Scratch(L"record"));
  const Variable marker(L"KESTRUNE_CHILD_MARKER", L"marked \u0416");
  PutFile(Scratch(L"inheritable"), "x");
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  const FileHandle file(CreateFileW(Scratch(L"inheritable").c_str(), GENERIC_READ, FILE_SHARE_READ,
                                    &inheritable, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(static_cast<bool>(file));
  const Variable handle(L"KESTRUNE_CHILD_HANDLE",
                        Decimal(reinterpret_cast<std::uintptr_t>(file.Get())));
  Desktop calls;
  const UserSettings settings = Recorder();
  const AfterExportResult result =
      HandToApplication({system_, calls}, settings, L"C:\\\u0416 x\\Main.zip", std::nullopt);
  EXPECT_TRUE(result.delivered);
  const std::wstring text = Record();
  EXPECT_EQ(text.find(L"inheritable"), std::wstring::npos);
  EXPECT_NE(text.find(L"Directory=" + std::wstring(ParentPath(settings.executable_path)) +
                      L"\nMarker=marked \u0416\n"),
            std::wstring::npos);
  EXPECT_TRUE(
      text.ends_with(L"\nCommandLine=" + settings.executable_path + L" " + kTokens + L" Main.zip"))
      << Utf8FromWide(text);
}

/// Tells how often a thread was suspended when it was resumed.
class CountedSuspensions final : public Desktop {
 public:
  DWORD Resume(HANDLE thread) override {
    suspensions = Desktop::Resume(thread);
    return suspensions;
  }

  DWORD suspensions = 0;
};

TEST_F(AfterExportTest, AProcessStandsStillUntilItIsResumed) {
  const Variable record(L"KESTRUNE_CHILD_RECORD", Scratch(L"record"));
  CountedSuspensions calls;
  EXPECT_TRUE(HandToApplication({system_, calls}, Recorder(), kZip, std::nullopt).delivered);
  EXPECT_EQ(calls.suspensions, 1U);
  EXPECT_FALSE(Record().empty());
}

TEST_F(AfterExportTest, AnApplicationInheritsTheErrorModeThatWasFound) {
  const ErrorMode ours(kNoSystemBoxes);
  ScriptedDesktop desktop(SEM_NOALIGNMENTFAULTEXCEPT);
  desktop.create_error = 740;
  EXPECT_TRUE(HandToApplication({system_, desktop}, Viewer(), kZip, std::nullopt).delivered);
  EXPECT_EQ(desktop.error_modes,
            (std::vector<UINT>{SEM_NOALIGNMENTFAULTEXCEPT, SEM_NOALIGNMENTFAULTEXCEPT}));
  EXPECT_EQ(GetErrorMode(), kNoSystemBoxes);
}

TEST_F(AfterExportTest, ARunningCopyIsServedFirst) {
  const std::wstring name = L"TAVORIN.Kestrune." + Decimal(GetCurrentProcessId());
  const FileHandle slot(CreateMailslotW((L"\\\\.\\mailslot\\" + name).c_str(), 0, 0, nullptr));
  UserSettings settings = Viewer();
  settings.mailslot_name = name;
  EXPECT_TRUE(HandToApplication({system_, calls_}, settings, kZip, 50000).delivered);
  EXPECT_TRUE(calls_.asked.empty());
  std::string message(1000, '\0');
  DWORD read = 0;
  ASSERT_TRUE(ReadFile(slot.Get(), message.data(), 1000, &read, nullptr));
  EXPECT_EQ(WidenBytes(message.substr(0, read)), std::wstring(kTokens) + L" Main.zip -space:5mil");
}

TEST_F(AfterExportTest, ANameThatNobodyListensOnStartsAProcess) {
  UserSettings settings = Viewer();
  for (const wchar_t* name : {L"TAVORIN.Kestrune.4000000001", L"TAVORIN.Kestrune.1234abc", L"x"}) {
    settings.mailslot_name = name;
    calls_.asked.clear();
    EXPECT_TRUE(HandToApplication({system_, calls_}, settings, kZip, std::nullopt).delivered);
    EXPECT_EQ(calls_.asked.size(), 2U);
  }
}

TEST_F(AfterExportTest, ALineThatTheCodePageCannotHoldStartsAProcessWithTheWholeLine) {
  if (GetACP() == CP_UTF8) {
    GTEST_SKIP() << "every character exists in this code page";
  }
  const std::wstring name = L"TAVORIN.Kestrune." + Decimal(GetCurrentProcessId());
  const FileHandle slot(CreateMailslotW((L"\\\\.\\mailslot\\" + name).c_str(), 0, 0, nullptr));
  UserSettings settings = Viewer();
  settings.mailslot_name = name;
  EXPECT_TRUE(
      HandToApplication({system_, calls_}, settings, L"C:\\\u4E2D.zip", std::nullopt).delivered);
  ASSERT_EQ(calls_.asked.size(), 2U);
  EXPECT_NE(calls_.asked[0].find(L"\u4E2D.zip"), std::wstring::npos);
  DWORD size = 0;
  ASSERT_TRUE(GetMailslotInfo(slot.Get(), nullptr, &size, nullptr, nullptr));
  EXPECT_EQ(size, MAILSLOT_NO_MESSAGE);
}

TEST_F(AfterExportTest, UnreadableSettingsCountAsNoneWithTheReason) {
  ASSERT_TRUE(TryCreateDirectories(folders_.common + L"\\Kestrune"));
  const UnreadableFile file(folders_.common_settings);
  if (!file.Works()) {
    GTEST_SKIP() << "this system tells the presence of a link to itself";
  }
  const AfterExportResult result = RunAfterExport({system_, calls_}, kZip, std::nullopt);
  EXPECT_FALSE(result.configured);
  EXPECT_FALSE(result.delivered);
  EXPECT_EQ(result.error_text, L"status");
}

TEST_F(AfterExportTest, AnExecutableWhosePresenceCannotBeAskedIsRaised) {
  UserSettings settings = Viewer();
  const UnreadableFile file(Scratch(L"loop.exe"));
  settings.executable_path = Scratch(L"loop.exe");
  if (!file.Works()) {
    GTEST_SKIP() << "this system tells the presence of a link to itself";
  }
  try {
    HandToApplication({system_, calls_}, settings, kZip, std::nullopt);
    FAIL() << "nothing was raised";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.text, L"status");
    EXPECT_NE(failure.code, 0U);
  }
  EXPECT_TRUE(calls_.asked.empty());
}

TEST_F(AfterExportTest, SettingsComeFromTheUsersFile) {
  Settings(L"[Target]\nEnabled=1\nProgramName=Viewer\nExecutablePath=C:\\none.exe\n");
  const AfterExportResult result = RunAfterExport({system_, calls_}, kZip, std::nullopt);
  EXPECT_TRUE(result.configured);
  EXPECT_EQ(result.error_text,
            L"The configured after-export executable does not exist: C:\\none.exe");
}

}  // namespace
}  // namespace kestrune
