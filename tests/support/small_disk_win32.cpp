#include "tests/support/small_disk_win32.h"

#include <windows.h>

#include <string_view>

#include "common/file_win32.h"
#include "common/path.h"

namespace kestrune {
namespace {

constexpr wchar_t kDisk[] = L"Z:\\small-disk";

}  // namespace

FullDisk::FullDisk() {
  const std::wstring folder = JoinPath(kDisk, L"folder");
  if (!CreateDirectoryW(folder.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    return;
  }
  const std::wstring filler = JoinPath(kDisk, L"filler");
  const FileHandle file(CreateFileW(filler.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  const std::string block(4096, 'x');
  for (int i = 0; file && i < 1024; ++i) {
    if (!WriteAll(file.Get(), block)) {
      folder_ = GetLastError() == ERROR_DISK_FULL ? folder : L"";
      return;
    }
  }
}

FullDisk::~FullDisk() {
  static_cast<void>(RemoveTree(JoinPath(kDisk, L"folder")));
  DeleteFileW(JoinPath(kDisk, L"filler").c_str());
}

}  // namespace kestrune
