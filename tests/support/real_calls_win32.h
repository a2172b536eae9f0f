#pragma once

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Returns unscripted calls to Windows, for actions of the test itself.
inline SystemCalls& RealCalls() {
  static SystemCalls calls;
  return calls;
}

}  // namespace kestrune
