#pragma once

#include <string>

#include "export/wait/native_wait_command.h"

namespace kestrune {

/// Waits until the host has finished writing the expected file, and leaves the outcome in the
/// result file for the script. Returns the exit code (WaitNativeCode): the wait fails after 240
/// looks, half a second apart.
int WaitForNativeOutput(const WaitNativeCommand& command);

/// Leaves the outcome of a wait that ended without archive in `result_path`; the script polls that
/// file and would wait in vain without it.
void ReportNativeWaitFailure(const std::wstring& result_path);

}  // namespace kestrune
