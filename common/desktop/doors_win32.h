#pragma once

#include "common/desktop/desktop_win32.h"
#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Holds the objects through which the program calls Windows. Created once at the start and passed
/// to the mode that runs.
struct Doors {
  SystemCalls& system;
  Desktop& desktop;
};

}  // namespace kestrune
