#pragma once

#include <string>

#include "common/system/owners_win32.h"

namespace kestrune {

/// The small disk that tools/wine mounts (on Windows tests/windows/run.py, which names it in
/// KESTRUNE_SMALL_DISK); empty again at the end of the scope.
class SmallDisk {
 public:
  SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk();

  /// A folder on the disk; empty where there is no such disk.
  [[nodiscard]] const std::wstring& Folder() const { return folder_; }

  /// Takes all the room that is left. False when the disk has no end.
  [[nodiscard]] bool Fill() const;

 private:
  std::wstring folder_;
};

}  // namespace kestrune

/// Skips the test where there is no such disk.
#define KESTRUNE_NEEDS_SMALL_DISK(disk) \
  if ((disk).Folder().empty())          \
  GTEST_SKIP() << "needs the small disk of tools/wine or tests/windows/run.py"
