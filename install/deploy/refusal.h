#pragma once

#include "common/failure/failure.h"

namespace kestrune {

/// Describes why the deployment must not or cannot install a file: a sentence, the path that ends
/// it, and the Windows code when a call failed. DeployRuntime returns it; any other Failure passes
/// on to the caller of DeployRuntime.
struct Refusal : Failure {};

}  // namespace kestrune
