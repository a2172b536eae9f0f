#pragma once

#include "common/system/system_calls_win32.h"
#include "export/wait/native_wait_command.h"

namespace kestrune {

/// Waits until the host has finished writing the expected file, and writes the outcome to the
/// result file for the script. Returns the exit code (WaitNativeCode). The wait fails after 240
/// polls, half a second apart.
int WaitForNativeOutput(SystemCalls& calls, const WaitNativeCommand& command);

/// Writes to the result file that the wait ended without an archive. Without it the script would
/// poll for the file until its time limit.
void ReportNativeWaitFailure(SystemCalls& calls, const WaitNativeCommand& command);

}  // namespace kestrune
