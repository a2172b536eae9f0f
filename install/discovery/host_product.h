#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "install/discovery/host_instance.h"

namespace kestrune {

/// Returns whether a display name belongs to the host: one of its three editions, alone or followed
/// by one blank and a version of digits with single dots between them. Ignores case; blanks must
/// match exactly.
bool IsHostProductName(std::wstring_view display_name);

/// Parses "major.minor.build" from the left, as far as possible: blanks before a number are
/// skipped, a number may have a sign and is clamped to 32 bits, and parts that cannot be parsed are
/// 0.
HostVersion ParseHostVersion(std::wstring_view text);

/// Returns whether the text is a GUID in braces: 38 characters, hexadecimal digits of either case.
bool IsInstanceGuid(std::wstring_view text);

/// Returns the instance's GUID from an uninstall string, in lower case: the quoted text in braces
/// after the first `B-UniqueID:` that is followed by braces of hexadecimal digits and hyphens.
/// Returns an empty text when there is none, or when that text is not a GUID.
std::wstring GuidFromUninstallString(std::wstring_view uninstall_string);

/// Returns the path in a display icon value: the text in leading double quotes, or the value
/// without its icon number ("path,0").
std::wstring PathFromDisplayIcon(std::wstring_view display_icon);

/// Returns whether the path's last component is one of the two names of the host's program.
bool NamesHostProgram(std::wstring_view path);

/// Holds the names in a folder or below a registry key, and whether listing them succeeded.
struct NameListing {
  enum class Outcome { Complete, CannotRead, CannotEnumerate };
  std::vector<std::wstring> names;
  Outcome outcome = Outcome::Complete;
};

/// Returns whether exactly one profile folder and one registry key have names that end in the GUID
/// (in lower case), and these names are equal. If so, `name` is that name; otherwise `reason` says
/// why not.
bool MatchInstanceName(std::wstring_view guid, const NameListing& profiles,
                       const NameListing& branches, std::wstring& name, std::wstring& reason);

}  // namespace kestrune
