#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/log/clock_time.h"

namespace kestrune {

/// Holds the values of the placeholders in an archive's name.
struct ArchiveNameValues {
  /// "%BOARD%": the board's file name without its extension.
  std::wstring_view board;
  /// "%DATE%" as 2026-03-07 and "%TIME%" as 09-05-02.
  ClockTime time;
  /// "%USER%": the Windows user's name.
  std::wstring_view user;
};

/// Returns the file name for a template of the settings, with ".zip" appended where it is missing.
/// Returns nothing when it is not a valid file name: empty, longer than 255 UTF-16 units, with an
/// invalid character (separators included), or reserved for a device.
std::optional<std::wstring> ArchiveName(std::wstring_view name_template,
                                        const ArchiveNameValues& values);

}  // namespace kestrune
