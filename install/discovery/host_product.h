#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "install/discovery/host_instance.h"

namespace kestrune {

/// Whether a display name belongs to the host: one of its three editions, alone or followed by one
/// blank and a version of digits and single inner dots. Case does not matter; blanks do.
bool IsHostProductName(std::wstring_view display_name);

/// Reads "major.minor.build" from the left, as far as it goes: blanks before a number are skipped,
/// a number may have a sign and is held to 32 bits, what does not parse stays 0.
HostVersion ParseHostVersion(std::wstring_view text);

/// Whether the text is a GUID in braces: 38 characters, hexadecimal digits of either case.
bool IsInstanceGuid(std::wstring_view text);

/// The instance's GUID out of an uninstall string, lower-cased: what stands in braces and quotes
/// behind the first `B-UniqueID:` that is followed by braces of hexadecimal digits and hyphens.
/// Empty when there is none, or when that first one is not a GUID.
std::wstring GuidFromUninstallString(std::wstring_view uninstall_string);

/// The path in a display icon value: the text between the leading double quotes, or the value
/// without an icon number ("path,0").
std::wstring PathFromDisplayIcon(std::wstring_view display_icon);

/// Whether the path's last component is the name of the host's program, in either of its names.
bool NamesHostProgram(std::wstring_view path);

/// The names in a folder or below a registry key, and how their listing ended.
struct NameListing {
  enum class Outcome { Complete, CannotRead, CannotEnumerate };
  std::vector<std::wstring> names;
  Outcome outcome = Outcome::Complete;
};

/// Finds the one profile folder and the one registry key that both end in the GUID (lower-cased)
/// and have the same name. On success `name` is that name; otherwise `reason` says what is wrong.
bool MatchInstanceName(std::wstring_view guid, const NameListing& profiles,
                       const NameListing& branches, std::wstring& name, std::wstring& reason);

}  // namespace kestrune
