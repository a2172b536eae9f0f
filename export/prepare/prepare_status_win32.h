#pragma once

#include "export/prepare/prepare_command.h"

namespace kestrune {

/// Publishes the outcome of `--prepare` for a script that asked for it: "OK" or "ERROR" with a line
/// end, written beside the status path and then renamed to it, so that the script never reads half
/// a file. Returns the exit code: `prepare_code`, or kPrepareStatusNotPublished.
///
/// A status file that exists already is never replaced, for it would belong to another run: that is
/// a failure, and so is any other failing step. The file beside it then stays.
[[nodiscard]] int PublishPrepareStatus(const PrepareCommand& command, int prepare_code);

}  // namespace kestrune
