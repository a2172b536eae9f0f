#pragma once

#include <windows.h>

#include <string_view>
#include <vector>

#include "common/system/owners_win32.h"

namespace kestrune {

/// Changes the user's entry in the system's list of profiles, from which the program finds its
/// folders, and restores it at the end of the scope. Requires a disposable profile, and on Windows
/// an administrator.
class ProfileListEntry {
 public:
  ProfileListEntry();
  ProfileListEntry(const ProfileListEntry&) = delete;
  ProfileListEntry& operator=(const ProfileListEntry&) = delete;
  ~ProfileListEntry();

  /// Returns whether the entry exists and this process may change it.
  [[nodiscard]] bool Writable() const { return !old_bytes_.empty(); }

  /// Writes `text` without a terminating null, then `extra_bytes` bytes of zeros.
  void Set(DWORD type, std::wstring_view text, DWORD extra_bytes = sizeof(wchar_t)) const;
  void Remove() const;

 private:
  RegistryKey key_;
  DWORD old_type_ = REG_NONE;
  std::vector<BYTE> old_bytes_;
};

/// Changes the user's profile directory until the end of the scope. The environment and the shell
/// still have the old one.
class MovedProfile {
 public:
  explicit MovedProfile(std::wstring_view path, DWORD type = REG_SZ) { entry_.Set(type, path); }

 private:
  ProfileListEntry entry_;
};

}  // namespace kestrune
