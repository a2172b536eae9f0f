#pragma once

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Returns whether a host process of any user runs on the machine. Returns false also when the
/// processes cannot be listed.
bool IsHostRunning(SystemCalls& calls);

}  // namespace kestrune
