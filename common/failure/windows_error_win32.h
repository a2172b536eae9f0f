#pragma once

#include <cstdint>
#include <string>

namespace kestrune {

/// Returns the system's message for a Windows error code, in the user's language, without trailing
/// line breaks; "Unknown Windows error" when the system has none.
std::wstring WindowsErrorText(std::uint32_t code);

/// Returns whether the error code of a call on a path means that nothing exists there: file not
/// found (2), path not found (3), bad network path (53), invalid name (123), or a parent that is
/// not a directory (267), which newer systems report for a path below a file.
bool MeansAbsent(std::uint32_t code);

}  // namespace kestrune
