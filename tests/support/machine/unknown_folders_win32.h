#pragma once

#include "common/places/known_folders_win32.h"

namespace kestrune {

/// A machine whose profile list and shell know only what a test lets them know.
class UnknownFolders final : public FolderCalls {
 public:
  bool ProfileFromList(std::wstring& profile) override {
    profile = listed_profile;
    return !profile.empty();
  }
  bool ShellFolder(const KNOWNFOLDERID& folder, DWORD flags, std::wstring& path) override {
    asked_flags = flags;
    path = known != nullptr && folder == *known ? shell_path : L"";
    return !path.empty();
  }

  std::wstring listed_profile;
  /// The one folder that the shell knows, at `shell_path`.
  const KNOWNFOLDERID* known = nullptr;
  std::wstring shell_path;
  /// The flags of the last question to the shell.
  DWORD asked_flags = 0;
};

}  // namespace kestrune
