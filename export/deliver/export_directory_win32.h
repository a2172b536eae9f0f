#pragma once

#include <string>

namespace kestrune {

/// Makes a directory of the settings usable: environment variables expanded, absolute, existing and
/// writable, which is tried with a file that vanishes at once. It is never created. False when any
/// of it fails.
[[nodiscard]] bool PrepareExportDirectory(const std::wstring& written, std::wstring& prepared);

}  // namespace kestrune
