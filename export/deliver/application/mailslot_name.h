#pragma once

#include <cstdint>
#include <string_view>

namespace kestrune {

/// The prefix (case-sensitive) of the mailslot name of a listening application; the listener's
/// process identifier follows in decimal.
inline constexpr std::wstring_view kMailslotPrefix = L"TAVORIN.Kestrune.";

/// Returns the listener's process identifier in a mailslot name; 0 when there is none: another
/// prefix, no digits, anything but '0' to '9', a number above 32 bits, or 4294967295.
std::uint32_t ListenerProcessId(std::wstring_view name);

/// Returns whether a message may be sent to this name: the prefix followed by one or more digits.
/// Accepts every digit of `iswdigit` and a number of any size, since a message is sent even to a
/// listener whose process cannot be verified.
bool IsMailslotName(std::wstring_view name);

}  // namespace kestrune
