#pragma once

#include "common/failure/failure.h"

namespace kestrune {

/// Describes why a file must not or cannot be installed: a sentence, the path that completes it,
/// and the Windows code when a call failed. DeployRuntime returns a Refusal, and throws any other
/// Failure.
struct Refusal : Failure {};

}  // namespace kestrune
