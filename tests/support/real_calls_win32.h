#pragma once

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Returns the calls to Windows as they are, for what a test does itself.
inline SystemCalls& RealCalls() {
  static SystemCalls calls;
  return calls;
}

}  // namespace kestrune
