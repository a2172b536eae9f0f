#pragma once

#include "common/system/system_calls_win32.h"
#include "export/wait/native_wait_command.h"

namespace kestrune {

/// Waits until the host has finished writing the expected file, and writes the outcome to the
/// result file for the script. Returns the exit code (WaitNativeCode). The wait fails after 240
/// polls, half a second apart.
int WaitForNativeOutput(SystemCalls& calls, const WaitNativeCommand& command);

/// Writes the outcome of a wait that ended without an archive to the result file, since the script
/// polls that file and would otherwise wait for its full time limit.
void ReportNativeWaitFailure(SystemCalls& calls, const WaitNativeCommand& command);

}  // namespace kestrune
