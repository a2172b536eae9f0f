#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Reads a text value as stored, up to its first null, with its type (REG_SZ or REG_EXPAND_SZ,
/// which is not expanded). Returns false when it is absent, has another type or cannot be read.
[[nodiscard]] bool ReadRegistryText(SystemCalls& calls, HKEY key, const wchar_t* name,
                                    std::wstring& text, DWORD& type);

/// Lists the names of the key's subkeys in the registry's order. Returns false when the enumeration
/// ended with an error; `names` then holds those before it.
[[nodiscard]] bool ListSubkeys(SystemCalls& calls, HKEY key, std::vector<std::wstring>& names);

}  // namespace kestrune
