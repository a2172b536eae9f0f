#include "common/system/registry_win32.h"

#include <algorithm>

namespace kestrune {
namespace {

constexpr DWORD kLongestKeyName = 512;

bool IsText(DWORD type) {
  return type == REG_SZ || type == REG_EXPAND_SZ;
}

}  // namespace

bool ReadRegistryText(SystemCalls& calls, HKEY key, const wchar_t* name, std::wstring& text,
                      DWORD& type) {
  DWORD size = 0;
  if (calls.QueryValue(key, name, &type, nullptr, &size) != ERROR_SUCCESS || !IsText(type)) {
    return false;
  }
  // One unit more for an odd byte; a stored text may lack its terminating null.
  text.assign(size / sizeof(wchar_t) + 1, L'\0');
  if (calls.QueryValue(key, name, &type, text.data(), &size) != ERROR_SUCCESS || !IsText(type)) {
    return false;
  }
  text.resize(size / sizeof(wchar_t));
  text.erase(std::min(text.find(L'\0'), text.size()));
  return true;
}

bool ListSubkeys(SystemCalls& calls, HKEY key, std::vector<std::wstring>& names) {
  names.clear();
  for (DWORD index = 0;; ++index) {
    wchar_t name[kLongestKeyName + 1] = {};
    DWORD length = kLongestKeyName + 1;
    const LSTATUS status = calls.EnumerateKey(key, index, name, &length);
    if (status != ERROR_SUCCESS) {
      return status == ERROR_NO_MORE_ITEMS;
    }
    names.emplace_back(name, length);
  }
}

}  // namespace kestrune
