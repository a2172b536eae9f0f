#pragma once

#include <cstdint>
#include <string_view>

namespace kestrune {

/// What every mailslot name of a listening application begins with, with case; the decimal process
/// identifier of the listener follows.
inline constexpr std::wstring_view kMailslotPrefix = L"TAVORIN.Kestrune.";

/// The listener's process identifier in a mailslot name; 0 when there is none: another prefix, no
/// digits, anything but '0' to '9', or a number that 32 bits cannot hold or that has all of them
/// set.
std::uint32_t ListenerProcessId(std::wstring_view name);

/// Whether a message may be sent to this name: the prefix and then at least one digit and nothing
/// but digits. A digit is here what the C library takes for one, and the number's size does not
/// matter: a name can be sent to although its process cannot be checked.
bool IsMailslotName(std::wstring_view name);

}  // namespace kestrune
