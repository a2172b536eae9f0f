#pragma once

#include <string>

#include "export/wait/native_wait_command.h"

namespace kestrune {

/// Waits until the host has finished writing the expected file, and writes the outcome to the
/// result file for the script. Returns the exit code (WaitNativeCode). The wait fails after 240
/// polls, half a second apart.
int WaitForNativeOutput(const WaitNativeCommand& command);

/// Writes the outcome of a wait that ended without an archive to `result_path`, since the script
/// polls that file and would otherwise wait for its full time limit.
void ReportNativeWaitFailure(const std::wstring& result_path);

}  // namespace kestrune
