#pragma once

#include "common/failure/failure.h"

namespace kestrune {

/// What a step of the deployment throws when it must not or cannot put a file in its place: the
/// sentence, the path that ends it, and the Windows code where a call failed. DeployRuntime returns
/// it. A Failure that is no Refusal is an error of the whole step and goes on to the caller.
struct Refusal : Failure {};

}  // namespace kestrune
