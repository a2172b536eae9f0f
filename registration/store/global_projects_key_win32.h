#pragma once

#include <string>
#include <vector>

#include "registration/transaction/registry_value.h"
#include "common/system/system_calls_win32.h"

namespace altium_registration {

/// Returns the path of an instance's Global Projects key below HKEY_CURRENT_USER.
std::wstring GlobalProjectsPath(const std::wstring& registry_branch);

/// Returns the key's values in enumeration order; none when the key does not exist. Throws Failure
/// of the step that failed, "Registry value exceeds safe limit." for a value above 1 MiB (before
/// its data is read) and "Registry changed during read." when a value differs from its enumeration.
std::vector<RegistryValue> ReadRegistryValues(kestrune::SystemCalls& calls,
                                              const std::wstring& key_path);

/// Sets a value; creates the key if it is absent. Throws Failure of the step that failed.
void WriteRegistryValue(kestrune::SystemCalls& calls, const std::wstring& key_path,
                        const RegistryValue& value);

/// Removes a value from an existing key. Throws Failure of the step that failed.
void RemoveRegistryValue(kestrune::SystemCalls& calls, const std::wstring& key_path,
                         const std::wstring& name);

}  // namespace altium_registration
