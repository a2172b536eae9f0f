#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/desktop/desktop_win32.h"
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

/// Hands the archive at `zip_path` to the application of the user's settings: builds its argument
/// line, offers it to a running copy and else starts a new one. Never waits for the application.
/// `space` is the board's spacing in ten-thousandths of a mil.
///
/// Settings that cannot be read count as none, with the reason as error text. Throws Failure
/// "status" when the executable's presence cannot be asked.
AfterExportResult RunAfterExport(const std::wstring& zip_path, std::optional<std::int64_t> space,
                                 Desktop& desktop);

/// RunAfterExport behind the reading of the settings.
AfterExportResult HandToApplication(const UserSettings& settings, const std::wstring& zip_path,
                                    std::optional<std::int64_t> space, Desktop& desktop);

/// Starts `executable` in its own folder with the argument line behind its quoted path; through the
/// shell, which asks the user, when it demands elevation. True when it runs; else the error text
/// says why with the Windows code.
[[nodiscard]] bool StartApplication(const std::wstring& executable,
                                    const std::wstring& argument_line, Desktop& desktop,
                                    std::wstring& error_text);

}  // namespace kestrune
