#pragma once

#include <string>
#include <string_view>

#include "export/settings/user_settings.h"

namespace kestrune {

/// Where the settings are read from: `<local application data>\<folder_name>\settings.ini` when
/// anything stands there, else the same path below the all-users application data. When that folder
/// is not known, the local path whether or not a file is there; empty when the local folder is not
/// known. The two files are never merged.
///
/// Both folders are asked of the shell, so redirected folders count here, and a folder's path is
/// limited to MAX_PATH characters.
std::wstring ResolveSettingsPath(std::wstring_view folder_name);

/// Reads the user's settings afresh. `settings_path` becomes the file that was read, empty when
/// there is none: then the defaults stand, which is success. A value keeps at most 32,767
/// characters; absent or malformed keys leave their defaults.
///
/// False only when no path can be formed: "The Windows LocalAppData directory is unavailable.".
/// Throws Failure "status" when the file's presence cannot be asked.
[[nodiscard]] bool LoadUserSettings(UserSettings& settings, std::wstring& settings_path,
                                    std::wstring& error_text);

/// The caption of the export command under these settings.
std::wstring BuildExportCommandLabel(const UserSettings& settings);

}  // namespace kestrune
