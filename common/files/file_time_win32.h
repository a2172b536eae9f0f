#pragma once

#include <windows.h>

#include <cstdint>

namespace kestrune {

/// Returns a 64-bit number from its two halves.
inline std::uint64_t JoinWords(DWORD high, DWORD low) {
  return (std::uint64_t{high} << 32) | low;
}

/// Returns a file time as a number of units of 100 nanoseconds since 1601, UTC.
inline std::uint64_t JoinFileTime(const FILETIME& time) {
  return JoinWords(time.dwHighDateTime, time.dwLowDateTime);
}

/// Returns the file time for a number of such units.
inline FILETIME SplitFileTime(std::uint64_t time) {
  return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

}  // namespace kestrune
