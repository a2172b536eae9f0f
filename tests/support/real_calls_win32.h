#pragma once

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// The calls to Windows as they are, for what a test does itself.
inline SystemCalls& RealCalls() {
  static SystemCalls calls;
  return calls;
}

}  // namespace kestrune
