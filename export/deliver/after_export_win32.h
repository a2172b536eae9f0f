#pragma once

#include <windows.h>
#include <shellapi.h>

#include <cstdint>
#include <optional>
#include <string>

#include "export/settings/user_settings.h"

namespace kestrune {

/// What became of the application that was to receive an export.
struct AfterExportResult {
  /// Whether the settings enable one.
  bool configured = false;
  /// Whether a running copy took the export over or a new process was started.
  bool delivered = false;
  std::wstring program_name;
  /// The caption of the export command under these settings.
  std::wstring label;
  /// Why the application was not reached, or why the settings could not be read; else empty.
  std::wstring error_text;
};

/// The calls that start an application. Tests put a scripted stand-in here for what a machine does
/// not do on request: a program that demands elevation, a process that does not resume.
class LaunchCalls {
 public:
  LaunchCalls() = default;
  LaunchCalls(const LaunchCalls&) = delete;
  LaunchCalls& operator=(const LaunchCalls&) = delete;
  virtual ~LaunchCalls() = default;

  /// ExpandEnvironment.
  virtual bool Expand(const std::wstring& text, std::wstring& expanded);
  /// CreateProcessW with a suspended main thread, inheriting the environment but no handles.
  virtual BOOL CreateSuspended(const wchar_t* application, wchar_t* command_line,
                               const wchar_t* directory, PROCESS_INFORMATION& process);
  /// AllowSetForegroundWindow.
  virtual void AllowForeground(DWORD process_id);
  /// ResumeThread.
  virtual DWORD Resume(HANDLE thread);
  /// ShellExecuteExW on a thread that is ready for COM.
  virtual BOOL Execute(SHELLEXECUTEINFOW& execution);
};

/// Hands the archive at `zip_path` to the application of the user's settings: builds its argument
/// line, offers it to a running copy and else starts a new one. Never waits for the application.
/// `space` is the board's spacing in ten-thousandths of a mil.
///
/// Settings that cannot be read count as none, with the reason as error text. Throws Failure
/// "status" when the executable's presence cannot be asked.
AfterExportResult RunAfterExport(const std::wstring& zip_path, std::optional<std::int64_t> space);

/// The same with settings that are read already.
AfterExportResult RunAfterExport(const UserSettings& settings, const std::wstring& zip_path,
                                 std::optional<std::int64_t> space, LaunchCalls& calls);

/// Starts `executable` in its own folder with the argument line behind its quoted path; through the
/// shell, which asks the user, when it demands elevation. True when it runs; else the error text
/// says why with the Windows code.
[[nodiscard]] bool StartApplication(const std::wstring& executable,
                                    const std::wstring& argument_line, LaunchCalls& calls,
                                    std::wstring& error_text);

}  // namespace kestrune
