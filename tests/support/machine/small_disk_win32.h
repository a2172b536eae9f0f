#pragma once

#include <string>

#include "common/system/owners_win32.h"

namespace kestrune {

/// Uses the small disk that tools/wine mounts (on Windows tests/windows/run.py, which names it in
/// KESTRUNE_SMALL_DISK), and clears it at the end of the scope.
class SmallDisk {
 public:
  SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk();

  /// Returns a folder on the disk; empty where there is no such disk.
  [[nodiscard]] const std::wstring& Folder() const { return folder_; }

  /// Fills the disk. Returns false when it is not a small disk.
  [[nodiscard]] bool Fill() const;

 private:
  std::wstring folder_;
};

}  // namespace kestrune

/// Skips the test when there is no such disk.
#define KESTRUNE_NEEDS_SMALL_DISK(disk) \
  if ((disk).Folder().empty())          \
  GTEST_SKIP() << "needs the small disk of tools/wine or tests/windows/run.py"
