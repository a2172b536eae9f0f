#pragma once

#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Finds `<profile>\AppData\Local` of the process's user: from the system's profile list, which
/// ignores folder redirection, or else from the shell. Does not check or create the folder.
///
/// Returns true when a path was found. The error text is "Cannot determine the current Windows user
/// profile directory." when neither source has the profile folder, even if the shell then returns
/// the path itself.
[[nodiscard]] bool LocalAppDataDirectory(SystemCalls& calls, std::wstring& path,
                                         std::wstring& error_text);

/// Finds `<profile>\AppData\Roaming` in the same way, with the same error text.
[[nodiscard]] bool RoamingAppDataDirectory(SystemCalls& calls, std::wstring& path,
                                           std::wstring& error_text);

/// Finds `<Public Documents>\Kestrune\Temp`, where an export is prepared. Does not create it.
/// Returns false with "Cannot locate the Public Documents directory.".
[[nodiscard]] bool TemporaryRoot(SystemCalls& calls, std::wstring& path, std::wstring& error_text);

/// Returns `<local application data>\Kestrune\Runtime`, where the runtime is deployed.
std::wstring RuntimeRoot(const std::wstring& local_app_data);

}  // namespace kestrune
