#pragma once

#include <windows.h>

#include <cstddef>

namespace kestrune {

/// Holds the numbers of this process's system resources.
struct OpenResources {
  /// Kernel handles: files, keys, processes, events and the like.
  std::size_t handles = 0;
  /// Windows' count of GDI and USER objects; always 0 under Wine, which does not count them.
  DWORD gui_objects = 0;
};

/// Counts them. Handles are counted in the system's own list, since GetProcessHandleCount is always
/// 0 under Wine. Throws std::runtime_error when that list cannot be read.
OpenResources CountOpenResources();

/// Returns the number of rounds of a test that looks for leaks: $KESTRUNE_SOAK_ROUNDS, else
/// `usual`.
int RepeatedRounds(int usual);

}  // namespace kestrune
