#pragma once

#include <windows.h>
#include <shtypes.h>

#include <string>

namespace kestrune {

/// Whom the folders are asked of. Tests put a stand-in here for a machine that does not know them.
class FolderCalls {
 public:
  FolderCalls() = default;
  FolderCalls(const FolderCalls&) = delete;
  FolderCalls& operator=(const FolderCalls&) = delete;
  virtual ~FolderCalls() = default;

  /// The profile directory as the system's own profile list has it for the process's user.
  virtual bool ProfileFromList(std::wstring& profile);
  /// SHGetKnownFolderPath. False also for an empty path.
  virtual bool ShellFolder(const KNOWNFOLDERID& folder, DWORD flags, std::wstring& path);
};

/// `<profile>\AppData\Local` of the user who owns the process, found through the profile list of
/// the system first, whatever folder redirection says, then through the shell. The folder is
/// neither checked nor created.
///
/// True when a path was found. The error text is "Cannot determine the current Windows user profile
/// directory." when neither route gave the profile, even if the shell then knew the folder itself;
/// so look at the result, not at the text.
[[nodiscard]] bool LocalAppDataDirectory(std::wstring& path, std::wstring& error_text);
[[nodiscard]] bool LocalAppDataDirectory(std::wstring& path, std::wstring& error_text,
                                         FolderCalls& calls);

/// The same for `<profile>\AppData\Roaming`.
[[nodiscard]] bool RoamingAppDataDirectory(std::wstring& path, std::wstring& error_text);
[[nodiscard]] bool RoamingAppDataDirectory(std::wstring& path, std::wstring& error_text,
                                           FolderCalls& calls);

/// `<Public Documents>\Kestrune\Temp`, where an export is prepared. Not created here. False with
/// "Cannot locate the Public Documents directory.".
[[nodiscard]] bool TemporaryRoot(std::wstring& path, std::wstring& error_text);
[[nodiscard]] bool TemporaryRoot(std::wstring& path, std::wstring& error_text, FolderCalls& calls);

/// `<local application data>\Kestrune\Runtime`, where the shared runtime is deployed.
std::wstring RuntimeRoot(const std::wstring& local_app_data);

}  // namespace kestrune
