#include "registration/store/global_projects_key_win32.h"

#include "common/system/owners_win32.h"
#include "registration/transaction/global_projects.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

using kestrune::RegistryKey;

/// The longest name of a registry value is 16,383 characters.
constexpr DWORD kNameBuffer = 16384;

DWORD Code(LSTATUS status) {
  return static_cast<DWORD>(status);
}

/// Reads the data of a value whose name, type and size the enumeration returned.
void ReadData(kestrune::SystemCalls& calls, HKEY key, RegistryValue& value, DWORD size) {
  // One byte more than needed, so that an empty value is read into a buffer too.
  value.data.resize(std::size_t{size} + 1);
  DWORD type = 0;
  DWORD read = size;
  const LSTATUS status = calls.QueryValue(key, value.name, &type, value.data.data(), &read);
  if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) {
    throw RegistryStepFailure(L"Read Global Projects value", Code(status));
  }
  if (status == ERROR_MORE_DATA || type != value.type || read != size) {
    throw Refusal(L"Registry changed during read.");
  }
  value.data.resize(size);
}

}  // namespace

std::wstring GlobalProjectsPath(const std::wstring& registry_branch) {
  return registry_branch + L"\\DesignExplorer\\Preferences\\ScriptingSystem\\Global Projects";
}

std::vector<RegistryValue> ReadRegistryValues(kestrune::SystemCalls& calls,
                                              const std::wstring& key_path) {
  RegistryKey key;
  LSTATUS status = calls.OpenKey(HKEY_CURRENT_USER, key_path, KEY_QUERY_VALUE, key.Put());
  if (status == ERROR_FILE_NOT_FOUND) {
    return {};
  }
  if (status != ERROR_SUCCESS) {
    throw RegistryStepFailure(L"Open Global Projects", Code(status));
  }
  std::vector<RegistryValue> values;
  std::wstring name(kNameBuffer, L'\0');
  for (DWORD index = 0;; ++index) {
    DWORD length = kNameBuffer;
    DWORD type = 0;
    DWORD size = 0;
    status = calls.EnumerateValue(key.Get(), index, name.data(), &length, &type, &size);
    if (status == ERROR_NO_MORE_ITEMS) {
      return values;
    }
    if (status != ERROR_SUCCESS) {
      throw RegistryStepFailure(L"Enumerate Global Projects", Code(status));
    }
    if (size > kMaxRegistryValueBytes) {
      throw Refusal(L"Registry value exceeds safe limit.");
    }
    values.push_back({name.substr(0, length), type, {}});
    ReadData(calls, key.Get(), values.back(), size);
  }
}

void WriteRegistryValue(kestrune::SystemCalls& calls, const std::wstring& key_path,
                        const RegistryValue& value) {
  RegistryKey key;
  LSTATUS status = calls.CreateKey(HKEY_CURRENT_USER, key_path, KEY_SET_VALUE, key.Put());
  if (status != ERROR_SUCCESS) {
    throw RegistryStepFailure(L"Open/create Global Projects", Code(status));
  }
  status = calls.SetValue(key.Get(), value.name, value.type, value.data.data(),
                          static_cast<DWORD>(value.data.size()));
  if (status != ERROR_SUCCESS) {
    throw RegistryStepFailure(L"Write Global Projects value", Code(status));
  }
}

void RemoveRegistryValue(kestrune::SystemCalls& calls, const std::wstring& key_path,
                         const std::wstring& name) {
  RegistryKey key;
  LSTATUS status = calls.OpenKey(HKEY_CURRENT_USER, key_path, KEY_SET_VALUE, key.Put());
  if (status != ERROR_SUCCESS) {
    throw RegistryStepFailure(L"Open Global Projects for removal", Code(status));
  }
  status = calls.DeleteValue(key.Get(), name);
  if (status != ERROR_SUCCESS) {
    throw RegistryStepFailure(L"Remove Global Projects value", Code(status));
  }
}

}  // namespace altium_registration
