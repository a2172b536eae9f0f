#include "export/deliver/application/after_export_win32.h"

#include "common/failure/error_mode_win32.h"
#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "export/deliver/application/argument_line.h"
#include "export/deliver/application/mailslot_notice_win32.h"
#include "export/settings/user_settings_win32.h"

namespace kestrune {
namespace {

constexpr DWORD kElevationRequired = 740;  // ERROR_ELEVATION_REQUIRED, which not every SDK names

/// Returns the executable with its environment variables expanded, or as written when Windows
/// cannot expand them.
std::wstring ExpandedExecutable(SystemCalls& calls, const UserSettings& settings) {
  std::wstring expanded;
  return ExpandEnvironment(calls, settings.executable_path, expanded) ? expanded
                                                                      : settings.executable_path;
}

/// Starts the process. Creates it suspended, so that it gets the right to take the foreground
/// before it opens a window. Returns false with the Windows code.
bool StartProcess(const std::wstring& executable, const std::wstring& argument_line,
                  const std::wstring& directory, Desktop& desktop, DWORD& code) {
  std::wstring command_line = QuoteCommandLineArgument(executable);
  if (!argument_line.empty()) {
    command_line += L" " + argument_line;
  }
  PROCESS_INFORMATION information{};
  if (!desktop.CreateSuspended(executable.c_str(), command_line.data(), directory.c_str(),
                               information)) {
    code = GetLastError();
    return false;
  }
  const KernelHandle process(information.hProcess);
  const KernelHandle thread(information.hThread);
  desktop.AllowForeground(information.dwProcessId);
  if (desktop.Resume(thread.Get()) != static_cast<DWORD>(-1)) {
    return true;
  }
  code = GetLastError();
  desktop.Terminate(process.Get(), code);
  return false;
}

/// Starts the program through the shell, which may show the consent prompt. Returns false with the
/// Windows code.
bool StartThroughShell(const std::wstring& executable, const std::wstring& argument_line,
                       const std::wstring& directory, Desktop& desktop, DWORD& code) {
  SHELLEXECUTEINFOW execution{};
  execution.cbSize = sizeof execution;
  execution.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC;
  execution.lpVerb = L"open";
  execution.lpFile = executable.c_str();
  execution.lpParameters = argument_line.empty() ? nullptr : argument_line.c_str();
  execution.lpDirectory = directory.c_str();
  execution.nShow = SW_SHOWNORMAL;
  if (!desktop.Execute(execution)) {
    code = GetLastError();
    return false;
  }
  const KernelHandle process(execution.hProcess);
  return true;
}

}  // namespace

bool StartApplication(const std::wstring& executable, const std::wstring& argument_line,
                      Desktop& desktop, std::wstring& error_text) {
  const std::wstring directory(ParentPath(FullPath(executable)));
  const ErrorMode inherited(desktop.InheritedErrorMode());
  DWORD code = 0;
  if (StartProcess(executable, argument_line, directory, desktop, code)) {
    return true;
  }
  if (code != kElevationRequired) {
    error_text = L"The configured after-export application could not be started. Windows error: " +
                 Decimal(code);
    return false;
  }
  if (StartThroughShell(executable, argument_line, directory, desktop, code)) {
    return true;
  }
  error_text =
      L"The configured after-export application requires elevation and could not be started. "
      L"Windows error: " +
      Decimal(code);
  return false;
}

AfterExportResult HandToApplication(const Doors& doors, const UserSettings& settings,
                                    const std::wstring& zip_path,
                                    std::optional<std::int64_t> space) {
  AfterExportResult result;
  result.label = BuildExportCommandLabel(doors.system, settings);
  result.program_name = settings.program_name;
  if (!settings.enabled) {
    return result;
  }
  result.configured = true;
  const std::wstring executable = ExpandedExecutable(doors.system, settings);
  if (QueryFileKind(doors.system, executable) != FileKind::RegularFile) {
    result.error_text = L"The configured after-export executable does not exist: " + executable;
    return result;
  }
  const std::wstring line = BuildArgumentLine(settings.arguments, zip_path, space);
  result.delivered = SendToRunningInstance(doors, settings.mailslot_name, line, executable) ||
                     StartApplication(executable, line, doors.desktop, result.error_text);
  return result;
}

AfterExportResult RunAfterExport(const Doors& doors, const std::wstring& zip_path,
                                 std::optional<std::int64_t> space) {
  UserSettings settings;
  AfterExportResult unreadable;
  try {
    std::wstring settings_path;
    if (!LoadUserSettings(doors.system, settings, settings_path, unreadable.error_text)) {
      return unreadable;
    }
  } catch (const Failure& failure) {
    unreadable.error_text = failure.text;
    return unreadable;
  }
  return HandToApplication(doors, settings, zip_path, space);
}

}  // namespace kestrune
