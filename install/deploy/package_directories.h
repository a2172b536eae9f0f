#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// The directories where the package of a program may be, in the order in which they are tried: the
/// program's own and at most five above it. The walk ends at the root of its drive or network
/// share; what lies above a share belongs to nobody whom the program could trust.
std::vector<std::wstring> PackageDirectories(std::wstring_view program_path);

}  // namespace kestrune
