#include "tests/support/scripted_calls_win32.h"

#include <algorithm>
#include <vector>

namespace altium_registration {

BOOL ScriptedCalls::GetSecurity(const std::wstring& path, SECURITY_INFORMATION parts,
                                void* descriptor, DWORD size, DWORD* needed) {
  std::vector<std::byte> scripted;
  if (!on_get_security || !on_get_security(path, scripted)) {
    return SystemCalls::GetSecurity(path, parts, descriptor, size, needed);
  }
  if (scripted.empty()) {
    return FALSE;
  }
  *needed = static_cast<DWORD>(scripted.size());
  if (size < scripted.size()) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  std::ranges::copy(scripted, static_cast<std::byte*>(descriptor));
  return TRUE;
}

}  // namespace altium_registration
