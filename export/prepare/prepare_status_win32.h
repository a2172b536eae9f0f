#pragma once

#include "common/system/system_calls_win32.h"
#include "export/prepare/prepare_command.h"

namespace kestrune {

/// Publishes the outcome of `--prepare` for a script that requested it: "OK" or "ERROR" with a line
/// end. Writes a temporary file beside the status path and renames it, so that the script never
/// reads an incomplete file. Returns the exit code: `prepare_code`, or kPrepareStatusNotPublished.
///
/// Never replaces an existing status file, since that belongs to another run. This counts as a
/// failure, like any other failing step; the temporary file is then left.
[[nodiscard]] int PublishPrepareStatus(SystemCalls& calls, const PrepareCommand& command,
                                       int prepare_code);

}  // namespace kestrune
