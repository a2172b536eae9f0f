#include "tests/support/machine/shell_folder_override_win32.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

constexpr wchar_t kShellFolders[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

DWORD ByteSize(const std::wstring& text) {
  const std::size_t size = (text.size() + 1) * sizeof(wchar_t);
  return static_cast<DWORD>(size);
}

}  // namespace

ShellFolderOverride::ShellFolderOverride(HKEY root, const std::wstring& name,
                                         const std::wstring& path)
    : name_(name) {
  EXPECT_EQ(RegOpenKeyExW(root, kShellFolders, 0, KEY_READ | KEY_WRITE, key_.Put()), ERROR_SUCCESS);
  wchar_t old[1024] = {};
  DWORD size = sizeof old - sizeof *old;
  if (RegQueryValueExW(key_.Get(), name.c_str(), nullptr, &old_type_, reinterpret_cast<BYTE*>(old),
                       &size) == ERROR_SUCCESS) {
    old_ = old;
  } else {
    old_type_ = REG_NONE;
  }
  EXPECT_EQ(RegSetValueExW(key_.Get(), name.c_str(), 0, REG_EXPAND_SZ,
                           reinterpret_cast<const BYTE*>(path.c_str()), ByteSize(path)),
            ERROR_SUCCESS);
}

ShellFolderOverride::~ShellFolderOverride() {
  if (old_type_ == REG_NONE) {
    RegDeleteValueW(key_.Get(), name_.c_str());
  } else {
    RegSetValueExW(key_.Get(), name_.c_str(), 0, old_type_,
                   reinterpret_cast<const BYTE*>(old_.c_str()), ByteSize(old_));
  }
}

}  // namespace kestrune
