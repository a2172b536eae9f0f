#pragma once

#include <windows.h>

#include <string>

#include "common/system/owners_win32.h"

namespace kestrune {

/// Moves one of the shell's folders for the duration of a scope, so that a test can make the shell
/// fail to find it. Requires a disposable profile.
class ShellFolderOverride {
 public:
  /// `root` HKEY_CURRENT_USER with "Local AppData", or HKEY_LOCAL_MACHINE with "Common AppData".
  ShellFolderOverride(HKEY root, const std::wstring& name, const std::wstring& path);
  ShellFolderOverride(const ShellFolderOverride&) = delete;
  ShellFolderOverride& operator=(const ShellFolderOverride&) = delete;
  ~ShellFolderOverride();

 private:
  RegistryKey key_;
  std::wstring name_;
  std::wstring old_;
  DWORD old_type_ = REG_NONE;
};

}  // namespace kestrune
