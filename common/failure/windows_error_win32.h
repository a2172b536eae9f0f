#pragma once

#include <cstdint>
#include <string>

namespace kestrune {

/// The system's message for a Windows error code, in the user's language, without trailing line
/// breaks; "Unknown Windows error" when the system has none.
std::wstring WindowsErrorText(std::uint32_t code);

/// Whether the code of a question about a path says that nothing is there: file not found (2), path
/// not found (3), bad network path (53), invalid name (123), or no directory on the way (267),
/// which newer systems answer for a path below a file.
bool MeansAbsent(std::uint32_t code);

}  // namespace kestrune
