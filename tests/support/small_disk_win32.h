#pragma once

#include <string>

#include "common/owners_win32.h"

namespace kestrune {

/// A full disk: the one-mebibyte disk that tools/wine mounts, filled until the end of the scope.
class FullDisk {
 public:
  FullDisk();
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  ~FullDisk();

  /// A folder on the disk; empty where there is no such disk.
  [[nodiscard]] const std::wstring& Folder() const { return folder_; }

 private:
  std::wstring folder_;
};

}  // namespace kestrune
