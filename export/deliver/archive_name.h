#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/log/clock_time.h"

namespace kestrune {

/// What the placeholders of an archive's name stand for.
struct ArchiveNameValues {
  /// "%BOARD%": the board's file name without its extension.
  std::wstring_view board;
  /// "%DATE%" as 2026-03-07 and "%TIME%" as 09-05-02.
  ClockTime time;
  /// "%USER%": the Windows user's name.
  std::wstring_view user;
};

/// The file name that a template of the settings gives, ".zip" appended where it is missing.
/// Nothing for a name that no file of the export directory can have: an empty one, one above 255
/// units, one with a character that no file name may hold (a separator among them) or that Windows
/// reserves for a device.
std::optional<std::wstring> ArchiveName(std::wstring_view name_template,
                                        const ArchiveNameValues& values);

}  // namespace kestrune
