#pragma once

#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Turns the directory of the settings into an absolute path with environment variables expanded,
/// and checks that it exists and is writable by creating a delete-on-close file in it. Never
/// creates the directory. Returns false when any of these steps fails.
[[nodiscard]] bool PrepareExportDirectory(SystemCalls& calls, const std::wstring& written,
                                          std::wstring& prepared);

}  // namespace kestrune
