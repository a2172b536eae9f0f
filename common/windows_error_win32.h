#pragma once

#include <cstdint>
#include <string>

namespace kestrune {

/// The system's message for a Windows error code, in the user's language, without trailing line
/// breaks; "Unknown Windows error" when the system has none.
std::wstring WindowsErrorText(std::uint32_t code);

}  // namespace kestrune
