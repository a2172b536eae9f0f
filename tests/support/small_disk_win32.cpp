#include "tests/support/small_disk_win32.h"

#include <windows.h>

#include <string>

#include "common/file_win32.h"
#include "common/path.h"

namespace kestrune {
namespace {

constexpr wchar_t kDisk[] = L"Z:\\small-disk";

}  // namespace

SmallDisk::SmallDisk() {
  const std::wstring folder = JoinPath(kDisk, L"folder");
  if (CreateDirectoryW(folder.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS) {
    folder_ = folder;
  }
}

SmallDisk::~SmallDisk() {
  if (!folder_.empty()) {
    static_cast<void>(RemoveTree(folder_));
    DeleteFileW(JoinPath(kDisk, L"filler").c_str());
  }
}

bool SmallDisk::Fill() const {
  const FileHandle file(CreateFileW(JoinPath(kDisk, L"filler").c_str(), GENERIC_WRITE, 0, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  const std::string block(4096, 'x');
  for (int i = 0; file && i < 1024; ++i) {
    if (!WriteAll(file.Get(), block)) {
      return GetLastError() == ERROR_DISK_FULL;
    }
  }
  return false;
}

}  // namespace kestrune
