#pragma once

#include <cstdint>
#include <string>

namespace kestrune {

/// The three leading parts of a host version, 0 where a part is missing.
struct HostVersion {
  std::int32_t major = 0;
  std::int32_t minor = 0;
  std::int32_t build = 0;
};

/// One installation of the host together with what it made for the current user.
struct HostInstance {
  std::wstring display_name;
  /// The version as the installation wrote it.
  std::wstring version_text;
  HostVersion version;
  /// 38 characters with braces, lower-cased.
  std::wstring guid;
  std::wstring install_location;
  std::wstring uninstall_string;
  std::wstring display_icon;
  /// The host's program file; empty when it was not found.
  std::wstring executable;
  /// The host's own toolbar definitions; empty when the program file is unknown.
  std::wstring resource_path;
  /// The user's profile directory of this instance; empty when it could not be told.
  std::wstring profile_directory;
  /// The user's registry branch below HKEY_CURRENT_USER; empty when it could not be told.
  std::wstring registry_branch;
  /// The instance's DXP.RCS; empty when the profile could not be told.
  std::wstring rcs_path;
  /// Whether a person has to look, since profile and branch do not match; `reason` then says why.
  bool needs_verification = false;
  std::wstring reason;
  /// Whether the installation stands in the 64-bit registry view.
  bool in_64_bit_view = false;
};

}  // namespace kestrune
