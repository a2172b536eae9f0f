#pragma once

#include <windows.h>
#include <shtypes.h>

#include <string>

namespace kestrune {

/// Looks up known folders. Tests derive from it to simulate a machine that does not know them.
class FolderCalls {
 public:
  FolderCalls() = default;
  FolderCalls(const FolderCalls&) = delete;
  FolderCalls& operator=(const FolderCalls&) = delete;
  virtual ~FolderCalls() = default;

  /// Reads the profile directory of the process's user from the system's profile list.
  virtual bool ProfileFromList(std::wstring& profile);
  /// Calls SHGetKnownFolderPath. Returns false also for an empty path.
  virtual bool ShellFolder(const KNOWNFOLDERID& folder, DWORD flags, std::wstring& path);
};

/// Finds `<profile>\AppData\Local` of the process's user: from the system's profile list, which
/// ignores folder redirection, or else from the shell. Does not check or create the folder.
///
/// Returns true when a path was found. The error text is "Cannot determine the current Windows user
/// profile directory." when neither source has the profile, even if the shell then returns the
/// folder itself; so check the result, not the text.
[[nodiscard]] bool LocalAppDataDirectory(std::wstring& path, std::wstring& error_text);
[[nodiscard]] bool LocalAppDataDirectory(std::wstring& path, std::wstring& error_text,
                                         FolderCalls& calls);

/// Does the same for `<profile>\AppData\Roaming`.
[[nodiscard]] bool RoamingAppDataDirectory(std::wstring& path, std::wstring& error_text);
[[nodiscard]] bool RoamingAppDataDirectory(std::wstring& path, std::wstring& error_text,
                                           FolderCalls& calls);

/// Finds `<Public Documents>\Kestrune\Temp`, where an export is prepared. Does not create it.
/// Returns false with "Cannot locate the Public Documents directory.".
[[nodiscard]] bool TemporaryRoot(std::wstring& path, std::wstring& error_text);
[[nodiscard]] bool TemporaryRoot(std::wstring& path, std::wstring& error_text, FolderCalls& calls);

/// Returns `<local application data>\Kestrune\Runtime`, where the runtime is deployed.
std::wstring RuntimeRoot(const std::wstring& local_app_data);

}  // namespace kestrune
