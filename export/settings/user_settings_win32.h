#pragma once

#include <string>
#include <string_view>

#include "common/system/system_calls_win32.h"
#include "export/settings/user_settings.h"

namespace kestrune {

/// Returns the path of the settings file: `<local application data>\<folder_name>\settings.ini`
/// when that exists, else the same path below the all-users application data. When the all-users
/// folder is unknown, returns the local path whether or not the file exists; when the local folder
/// is unknown, an empty path. The two files are never merged.
///
/// Both folders come from the shell, so redirection is respected and a folder's path is limited to
/// MAX_PATH characters.
std::wstring ResolveSettingsPath(SystemCalls& calls, std::wstring_view folder_name);

/// Reads the user's settings from disk. `settings_path` becomes the file that was read; without a
/// file it is empty and the settings are the defaults, which is success. A value is truncated to
/// 32,767 characters; absent or malformed keys keep their defaults.
///
/// Returns false only when no path can be formed: "The Windows LocalAppData directory is
/// unavailable.". Throws Failure "status" when Windows cannot report whether the file exists.
[[nodiscard]] bool LoadUserSettings(SystemCalls& calls, UserSettings& settings,
                                    std::wstring& settings_path, std::wstring& error_text);

/// Returns the caption of the export command under these settings.
std::wstring BuildExportCommandLabel(SystemCalls& calls, const UserSettings& settings);

}  // namespace kestrune
