#pragma once

#include <cstdint>
#include <string>

namespace kestrune {

/// Holds the three leading parts of a host version, 0 where a part is missing.
struct HostVersion {
  std::int32_t major = 0;
  std::int32_t minor = 0;
  std::int32_t build = 0;
};

/// Holds an instance: an installation of the host with the current user's profile of it.
struct HostInstance {
  std::wstring display_name;
  /// The version as written by the installation.
  std::wstring version_text;
  HostVersion version;
  /// 38 characters with braces, in lower case.
  std::wstring guid;
  std::wstring install_location;
  std::wstring uninstall_string;
  std::wstring display_icon;
  /// The host's program file; empty when it was not found.
  std::wstring executable;
  /// The host's own toolbar definitions; empty when the program file is unknown.
  std::wstring resource_path;
  /// The user's profile directory of this instance; empty when it could not be determined.
  std::wstring profile_directory;
  /// The user's registry branch below HKEY_CURRENT_USER; empty when it could not be determined.
  std::wstring registry_branch;
  /// The path of the instance's DXP.RCS; empty when the profile could not be determined.
  std::wstring rcs_path;
  /// Whether the user must check profile and branch, because they do not match; `reason` then says
  /// why.
  bool needs_verification = false;
  std::wstring reason;
  /// Whether the installation is listed in the 64-bit registry view.
  bool in_64_bit_view = false;
};

}  // namespace kestrune
