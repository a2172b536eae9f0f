#pragma once

#include <string>

#include "common/failure/failure.h"
#include "common/files/tree_removal_win32.h"

namespace kestrune {

/// RemoveTree for the cleaning up of a test. False with the thread's last error.
inline bool RemoveTree(const std::wstring& path) {
  SystemCalls calls;
  try {
    RemoveTree(calls, path);
    return true;
  } catch (const Failure& failure) {
    SetLastError(failure.code);
    return false;
  }
}

}  // namespace kestrune
