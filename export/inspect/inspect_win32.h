#pragma once

#include "common/system/system_calls_win32.h"
#include "export/inspect/inspect_command.h"

namespace kestrune {

/// Reads an archive and writes its list of layers, or the reason why there is none, to the result
/// file. Writes a temporary file and renames it, so that the script never reads an incomplete
/// result. Writes one log entry about the archive. Returns an InspectCode.
int InspectForScript(SystemCalls& calls, const InspectCommand& command);

/// Writes to the result file that the inspection failed for an unexpected reason, such as running
/// out of memory. Returns an InspectCode.
int ReportInspectFailure(SystemCalls& calls, const InspectCommand& command);

}  // namespace kestrune
