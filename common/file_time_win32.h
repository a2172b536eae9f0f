#pragma once

#include <windows.h>

#include <cstdint>

namespace kestrune {

/// A file time as one number: units of 100 nanoseconds since 1601, UTC.
inline std::uint64_t JoinFileTime(const FILETIME& time) {
  return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

inline FILETIME SplitFileTime(std::uint64_t time) {
  return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

}  // namespace kestrune
