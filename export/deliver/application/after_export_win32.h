#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/desktop/doors_win32.h"
#include "export/settings/user_settings.h"

namespace kestrune {

/// Holds the outcome of handing an export to the application of the settings.
struct AfterExportResult {
  /// Whether the settings enable an application.
  bool configured = false;
  /// Whether a running process of the application accepted the export or a new one was started.
  bool delivered = false;
  std::wstring program_name;
  /// The caption of the export command under these settings.
  std::wstring label;
  /// Why the application was not reached, or why the settings could not be read; else empty.
  std::wstring error_text;
};

/// Hands the archive at `zip_path` to the application of the user's settings: builds its argument
/// line, sends it to a running process of the application, or starts a new one. Never waits for the
/// application. `space` is the board's spacing in ten-thousandths of a mil.
///
/// When the settings cannot be read, no application is configured and the error text has the
/// reason. Throws Failure "status" when Windows cannot report whether the executable exists.
AfterExportResult RunAfterExport(const Doors& doors, const std::wstring& zip_path,
                                 std::optional<std::int64_t> space);

/// Does the work of RunAfterExport with settings that were already read.
AfterExportResult HandToApplication(const Doors& doors, const UserSettings& settings,
                                    const std::wstring& zip_path,
                                    std::optional<std::int64_t> space);

/// Starts `executable` in its own folder. The command line is its quoted path and the argument
/// line. A program that demands elevation is started through the shell, which shows the user the
/// consent prompt. Returns true when it was started; otherwise the error text has the reason and
/// the Windows code.
[[nodiscard]] bool StartApplication(const std::wstring& executable,
                                    const std::wstring& argument_line, Desktop& desktop,
                                    std::wstring& error_text);

}  // namespace kestrune
