#pragma once

#include <windows.h>

#include <cstdint>

namespace kestrune {

/// A number that Windows gives in two halves.
inline std::uint64_t JoinWords(DWORD high, DWORD low) {
  return (std::uint64_t{high} << 32) | low;
}

/// A file time as one number: units of 100 nanoseconds since 1601, UTC.
inline std::uint64_t JoinFileTime(const FILETIME& time) {
  return JoinWords(time.dwHighDateTime, time.dwLowDateTime);
}

inline FILETIME SplitFileTime(std::uint64_t time) {
  return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

}  // namespace kestrune
