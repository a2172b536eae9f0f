#pragma once

#include "common/failure/failure.h"

namespace kestrune {

/// Describes why the deployment must not or cannot install a file: a sentence, the path that
/// completes it, and the Windows code when a call failed. DeployRuntime returns it, and passes any
/// other Failure on to its caller.
struct Refusal : Failure {};

}  // namespace kestrune
