#include "tests/support/machine/small_disk_win32.h"
#include "tests/support/remove_tree_win32.h"

#include <windows.h>

#include <string>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "tests/support/files_win32.h"

namespace kestrune {
namespace {

/// More than any small disk has; a disk with this space is not a small one.
constexpr int kLargestDisk = 64 << 20;

/// Returns the disk of tools/wine, unless the environment names another: tests/windows/run.py
/// mounts one.
std::wstring Disk() {
  wchar_t named[MAX_PATH] = {};
  const DWORD length = GetEnvironmentVariableW(L"KESTRUNE_SMALL_DISK", named, MAX_PATH);
  return length != 0 && length < MAX_PATH ? std::wstring(named, length) : L"Z:\\small-disk";
}

}  // namespace

SmallDisk::SmallDisk() {
  const std::wstring folder = JoinPath(Disk(), L"folder");
  if (CreateDirectoryW(folder.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS) {
    folder_ = folder;
  }
}

SmallDisk::~SmallDisk() {
  if (!folder_.empty()) {
    static_cast<void>(RemoveTree(folder_));
    DeleteFileW(JoinPath(Disk(), L"filler").c_str());
  }
}

bool SmallDisk::Fill() const {
  const FileHandle file(CreateFileW(JoinPath(Disk(), L"filler").c_str(), GENERIC_WRITE, 0, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  const std::string block(4096, 'x');
  for (int i = 0; file && i < kLargestDisk / 4096; ++i) {
    if (!TryWriteAll(file.Get(), block)) {
      return GetLastError() == ERROR_DISK_FULL;
    }
  }
  return false;
}

}  // namespace kestrune
