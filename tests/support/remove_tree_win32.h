#pragma once

#include <string>

#include "common/files/tree_removal_win32.h"
#include "tests/support/files_win32.h"

namespace kestrune {

/// Removes a tree. Returns false with the thread's last error when it cannot.
inline bool RemoveTree(const std::wstring& path) {
  return TryOnFile([&] { RemoveTree(RealCalls(), path); });
}

}  // namespace kestrune
