#pragma once

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Whether any host process runs on the machine, of whatever user. False also when Windows does not
/// let the processes be listed.
bool IsHostRunning(SystemCalls& calls);

}  // namespace kestrune
