#pragma once

#include <optional>
#include <string>

#include "common/system/system_calls_win32.h"
#include "install/deploy/package_timestamp.h"

namespace kestrune {

/// Returns when the package's file was made: what the manifest BFM_*.ini in its folder says, else
/// its own last-write time. Digests are checked against the file's present content.
///
/// Nothing when the file cannot be read, is a directory or a link or has no time, when its folder
/// has more than one manifest, or when the manifest does not vouch for exactly this content.
std::optional<PackageTimestamp> GetPackageTimestamp(SystemCalls& calls, const std::wstring& source);

}  // namespace kestrune
