#pragma once

#include "common/system/system_calls_win32.h"
#include "export/prepare/prepare_command.h"

namespace kestrune {

/// Publishes the outcome of `--prepare` for a script that requested it: "OK" or "ERROR" with a line
/// end. Writes a temporary file beside the status path and renames it, so that the script never
/// reads an incomplete file. Returns the exit code: `prepare_code`, or kPrepareStatusNotPublished.
///
/// Never replaces an existing status file, which belongs to another run; this is a failure. After a
/// failure the temporary file is left.
[[nodiscard]] int PublishPrepareStatus(SystemCalls& calls, const PrepareCommand& command,
                                       int prepare_code);

}  // namespace kestrune
