#pragma once

#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Makes the calls of a machine on which the profile list and the shell report only given folders.
class UnknownFolders final : public SystemCalls {
 public:
  LSTATUS OpenKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) override {
    const bool is_profile = path.find(L"\\ProfileList\\") != std::wstring::npos;
    return is_profile && listed_profile.empty() ? ERROR_FILE_NOT_FOUND
                                                : SystemCalls::OpenKey(parent, path, access, key);
  }
  LSTATUS QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                     DWORD* size) override {
    if (name != L"ProfileImagePath") {
      return SystemCalls::QueryValue(key, name, type, data, size);
    }
    *type = REG_SZ;
    *size = static_cast<DWORD>(listed_profile.size() * sizeof(wchar_t));
    if (data != nullptr) {
      std::ranges::copy(listed_profile, static_cast<wchar_t*>(data));
    }
    return ERROR_SUCCESS;
  }
  HRESULT GetKnownFolder(const KNOWNFOLDERID& folder, DWORD flags, wchar_t** path) override {
    asked_flags = flags;
    *path = nullptr;
    if (known == nullptr || folder != *known) {
      return E_FAIL;
    }
    const std::size_t size = shell_path.size() + 1;
    *path = static_cast<wchar_t*>(CoTaskMemAlloc(size * sizeof(wchar_t)));
    std::copy_n(shell_path.c_str(), size, *path);
    return S_OK;
  }

  std::wstring listed_profile;
  /// The only folder that the shell reports, at `shell_path`.
  const KNOWNFOLDERID* known = nullptr;
  std::wstring shell_path;
  /// The flags of the last call of the shell.
  DWORD asked_flags = 0;
};

}  // namespace kestrune
