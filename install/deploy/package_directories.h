#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// Returns the directories that are searched for a program's package, in order: the program's own
/// and at most five above it. The search ends at the root of the drive or network share, since
/// directories above a share cannot be trusted.
std::vector<std::wstring> PackageDirectories(std::wstring_view program_path);

}  // namespace kestrune
