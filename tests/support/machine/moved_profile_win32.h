#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

#include "common/system/owners_win32.h"

namespace kestrune {

/// The user's entry in the system's list of profiles, where the program looks for its folders. It
/// is put back at the end of the scope. Only where the profile is disposable; on Windows it takes
/// an administrator.
class ProfileListEntry {
 public:
  ProfileListEntry();
  ProfileListEntry(const ProfileListEntry&) = delete;
  ProfileListEntry& operator=(const ProfileListEntry&) = delete;
  ~ProfileListEntry();

  /// Whether there is an entry that this process may change.
  [[nodiscard]] bool Writable() const { return !old_bytes_.empty(); }

  /// Writes `text` without a terminating zero, then `extra_bytes` more of the zero behind it.
  void Set(DWORD type, std::wstring_view text, DWORD extra_bytes = sizeof(wchar_t)) const;
  void Remove() const;

 private:
  RegistryKey key_;
  DWORD old_type_ = REG_NONE;
  std::vector<BYTE> old_bytes_;
};

/// Gives the user another profile directory until the end of the scope. The environment and the
/// shell still name the old one.
class MovedProfile {
 public:
  explicit MovedProfile(std::wstring_view path, DWORD type = REG_SZ) { entry_.Set(type, path); }

 private:
  ProfileListEntry entry_;
};

}  // namespace kestrune
