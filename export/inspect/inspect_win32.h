#pragma once

#include "common/system/system_calls_win32.h"
#include "export/inspect/inspect_command.h"

namespace kestrune {

/// Reads an archive and leaves its list of layers, or the reason why there is none, in the result
/// file: written beside it, then renamed over it, so that a file of that name is complete. Writes
/// one log entry about the archive. Returns an InspectCode.
int InspectForScript(const InspectCommand& command, SystemCalls& calls);

/// Leaves word in the result file that the inspection failed for a reason that nothing expects,
/// such as memory running out. Returns an InspectCode.
int ReportInspectFailure(const InspectCommand& command);

}  // namespace kestrune
