#include "tests/support/machine/disposable_profile_win32.h"

#include <windows.h>

namespace kestrune {

bool RunsUnderWine() {
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

bool ProfileIsDisposable() {
  wchar_t value[2] = {};
  const DWORD length = GetEnvironmentVariableW(L"KESTRUNE_DISPOSABLE_PROFILE", value, 2);
  return RunsUnderWine() || (length == 1 && value[0] == L'1');
}

}  // namespace kestrune
