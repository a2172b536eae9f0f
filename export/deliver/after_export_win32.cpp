#include "export/deliver/after_export_win32.h"

#include <objbase.h>

#include "common/failure.h"
#include "common/file_win32.h"
#include "common/owners_win32.h"
#include "common/path.h"
#include "common/text.h"
#include "export/deliver/argument_line.h"
#include "export/deliver/mailslot_notice_win32.h"
#include "export/settings/user_settings_win32.h"

namespace kestrune {
namespace {

constexpr DWORD kElevationRequired = 740;  // ERROR_ELEVATION_REQUIRED, which not every SDK names

/// COM for the time of one shell call; the call's error outlives it.
class ComApartment {
 public:
  ComApartment() : entered_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;
  ~ComApartment() {
    const LastErrorKeeper error;
    if (entered_) {
      CoUninitialize();
    }
  }

 private:
  bool entered_;
};

/// The executable with its environment variables expanded, as written where Windows refuses.
std::wstring ExpandedExecutable(const UserSettings& settings, LaunchCalls& calls) {
  std::wstring expanded;
  return calls.Expand(settings.executable_path, expanded) ? expanded : settings.executable_path;
}

/// Starts the process; false with the Windows error. It is created suspended so that it has the
/// right to take the foreground before its first window.
bool StartProcess(const std::wstring& executable, const std::wstring& argument_line,
                  const std::wstring& directory, LaunchCalls& calls, DWORD& code) {
  std::wstring command_line = QuoteCommandLineArgument(executable);
  if (!argument_line.empty()) {
    command_line += L" " + argument_line;
  }
  PROCESS_INFORMATION information{};
  if (!calls.CreateSuspended(executable.c_str(), command_line.data(), directory.c_str(),
                             information)) {
    code = GetLastError();
    return false;
  }
  const KernelHandle process(information.hProcess);
  const KernelHandle thread(information.hThread);
  calls.AllowForeground(information.dwProcessId);
  if (calls.Resume(thread.Get()) != static_cast<DWORD>(-1)) {
    return true;
  }
  code = GetLastError();
  TerminateProcess(process.Get(), code);
  return false;
}

/// Lets the shell start it, which may ask the user for elevation; false with the Windows error.
bool StartThroughShell(const std::wstring& executable, const std::wstring& argument_line,
                       const std::wstring& directory, LaunchCalls& calls, DWORD& code) {
  SHELLEXECUTEINFOW execution{};
  execution.cbSize = sizeof execution;
  execution.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC;
  execution.lpVerb = L"open";
  execution.lpFile = executable.c_str();
  execution.lpParameters = argument_line.empty() ? nullptr : argument_line.c_str();
  execution.lpDirectory = directory.c_str();
  execution.nShow = SW_SHOWNORMAL;
  if (!calls.Execute(execution)) {
    code = GetLastError();
    return false;
  }
  const KernelHandle process(execution.hProcess);
  return true;
}

}  // namespace

bool LaunchCalls::Expand(const std::wstring& text, std::wstring& expanded) {
  return ExpandEnvironment(text, expanded);
}

BOOL LaunchCalls::CreateSuspended(const wchar_t* application, wchar_t* command_line,
                                  const wchar_t* directory, PROCESS_INFORMATION& process) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  return CreateProcessW(application, command_line, nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                        nullptr, directory, &startup, &process);
}

void LaunchCalls::AllowForeground(DWORD process_id) {
  AllowSetForegroundWindow(process_id);
}

DWORD LaunchCalls::Resume(HANDLE thread) {
  return ResumeThread(thread);
}

BOOL LaunchCalls::Execute(SHELLEXECUTEINFOW& execution) {
  const ComApartment apartment;
  return ShellExecuteExW(&execution);
}

bool StartApplication(const std::wstring& executable, const std::wstring& argument_line,
                      LaunchCalls& calls, std::wstring& error_text) {
  const std::wstring directory(ParentPath(FullPath(executable)));
  DWORD code = 0;
  if (StartProcess(executable, argument_line, directory, calls, code)) {
    return true;
  }
  if (code != kElevationRequired) {
    error_text = L"The configured after-export application could not be started. Windows error: " +
                 Decimal(code);
    return false;
  }
  if (StartThroughShell(executable, argument_line, directory, calls, code)) {
    return true;
  }
  error_text =
      L"The configured after-export application requires elevation and could not be started. "
      L"Windows error: " +
      Decimal(code);
  return false;
}

AfterExportResult RunAfterExport(const UserSettings& settings, const std::wstring& zip_path,
                                 std::optional<std::int64_t> space, LaunchCalls& calls) {
  AfterExportResult result;
  result.label = BuildExportCommandLabel(settings);
  result.program_name = settings.program_name;
  if (!settings.enabled) {
    return result;
  }
  result.configured = true;
  const std::wstring executable = ExpandedExecutable(settings, calls);
  if (QueryFileKind(executable) != FileKind::RegularFile) {
    result.error_text = L"The configured after-export executable does not exist: " + executable;
    return result;
  }
  const std::wstring line = BuildArgumentLine(settings.arguments, zip_path, space);
  result.delivered = SendToRunningInstance(settings.mailslot_name, line, executable) ||
                     StartApplication(executable, line, calls, result.error_text);
  return result;
}

AfterExportResult RunAfterExport(const std::wstring& zip_path, std::optional<std::int64_t> space) {
  UserSettings settings;
  AfterExportResult unreadable;
  try {
    std::wstring settings_path;
    if (!LoadUserSettings(settings, settings_path, unreadable.error_text)) {
      return unreadable;
    }
  } catch (const Failure& failure) {
    unreadable.error_text = failure.text;
    return unreadable;
  }
  LaunchCalls calls;
  return RunAfterExport(settings, zip_path, space, calls);
}

}  // namespace kestrune
