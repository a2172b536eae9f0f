#pragma once

#include <windows.h>

#include <cstddef>

namespace kestrune {

/// What this process holds of the system at one moment.
struct OpenResources {
  /// Kernel handles: files, keys, processes, events and the like.
  std::size_t handles = 0;
  /// Windows' count of GDI and USER objects; always 0 under Wine, which does not count them.
  DWORD gui_objects = 0;
};

/// Counts them. Handles are counted in the system's own list, for Wine answers
/// GetProcessHandleCount with 0. Throws std::runtime_error when the system does not answer.
OpenResources CountOpenResources();

/// How often tests that look for leaks repeat what they do: $KESTRUNE_SOAK_ROUNDS, else `usual`.
int RepeatedRounds(int usual);

}  // namespace kestrune
