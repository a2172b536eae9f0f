#pragma once

#include "common/system/system_calls_win32.h"
#include "export/prepare/prepare_command.h"

namespace kestrune {

/// Builds the temporary project Bridge around a board in the temporary root: the board and its
/// embedded boards as copies, the output job with the board's layers switched on, the project file
/// and, last, `ready.txt`. The dependency list names the embedded boards, the manifest the layers.
///
/// Returns the exit code (PrepareCode). The status is published by PublishPrepareStatus.
int PrepareTemporaryProject(SystemCalls& calls, const PrepareCommand& command);

}  // namespace kestrune
