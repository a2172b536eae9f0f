#pragma once

#include <string>

namespace kestrune {

/// `<profile>\AppData\Local` of the user who owns the process, found through the profile list of
/// the system first, whatever folder redirection says, then through the shell. The folder is
/// neither checked nor created.
///
/// True when a path was found. The error text is "Cannot determine the current Windows user profile
/// directory." when neither route gave the profile, even if the shell then knew the folder itself;
/// so look at the result, not at the text.
[[nodiscard]] bool LocalAppDataDirectory(std::wstring& path, std::wstring& error_text);

/// The same for `<profile>\AppData\Roaming`.
[[nodiscard]] bool RoamingAppDataDirectory(std::wstring& path, std::wstring& error_text);

/// `<Public Documents>\Kestrune\Temp`, where an export is prepared. Not created here. False with
/// "Cannot locate the Public Documents directory.".
[[nodiscard]] bool TemporaryRoot(std::wstring& path, std::wstring& error_text);

/// `<local application data>\Kestrune\Runtime`, where the shared runtime is deployed.
std::wstring RuntimeRoot(const std::wstring& local_app_data);

}  // namespace kestrune
