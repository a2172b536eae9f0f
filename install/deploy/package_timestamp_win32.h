#pragma once

#include <optional>
#include <string>

#include "common/system/system_calls_win32.h"
#include "install/deploy/package_timestamp.h"

namespace kestrune {

/// Returns the time of a package's file: from the manifest BFM_*.ini in its folder, or else its own
/// last-write time. The manifest's digest is compared with the file's content.
///
/// Returns nothing when the file cannot be read, is a directory or a link or has no time, when its
/// folder has more than one manifest, or when the manifest lacks the file or has another digest.
std::optional<PackageTimestamp> GetPackageTimestamp(SystemCalls& calls, const std::wstring& source);

}  // namespace kestrune
