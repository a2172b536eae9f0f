#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/failure.h"
#include "registration/transaction/system_calls_win32.h"

namespace altium_registration {

/// The real calls, except where a test says otherwise. A hook that answers true has taken the call
/// over: `answer` (or the last error that it set, for a false answer) is what the caller sees.
class ScriptedCalls final : public SystemCalls {
 public:
  using PathHook = std::function<bool(const std::wstring& path, BOOL& answer)>;

  PathHook on_create, on_copy, on_make_directory, on_replace, on_move, on_delete, on_set_security;
  /// Called with the path; a descriptor given here is answered instead of the file's own.
  std::function<bool(const std::wstring& path, std::vector<std::byte>& descriptor)> on_get_security;
  std::function<bool(BOOL&answer)> on_write, on_flush, on_initialize_descriptor, on_get_owner,
      on_get_group, on_set_owner, on_set_group;
  /// Called after the real look at a file; may change what it answered.
  std::function<void(WIN32_FILE_ATTRIBUTE_DATA& data, BOOL& answer)> after_get_attributes;
  std::function<bool(LARGE_INTEGER& size, BOOL& answer)> on_size;
  /// Thrown where a digest is asked for.
  std::optional<kestrune::Failure> on_sha;
  std::function<bool(LSTATUS&answer)> on_open_key, on_enumerate, on_create_key, on_set_value,
      on_delete_value;
  /// Called after the real reading of a value; may change what it answered.
  std::function<void(LSTATUS& answer, DWORD& type, DWORD& size)> after_query;

  BOOL GetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA* data) override {
    BOOL answer = SystemCalls::GetAttributes(path, data);
    if (after_get_attributes) {
      after_get_attributes(*data, answer);
    }
    return answer;
  }
  HANDLE Create(const std::wstring& path, DWORD access, DWORD sharing,
                SECURITY_ATTRIBUTES* security, DWORD disposition) override {
    BOOL answer = FALSE;
    return on_create && on_create(path, answer)
               ? INVALID_HANDLE_VALUE
               : SystemCalls::Create(path, access, sharing, security, disposition);
  }
  BOOL Write(HANDLE file, const void* bytes, DWORD size, DWORD* written) override {
    BOOL answer = FALSE;
    return on_write && on_write(answer) ? answer : SystemCalls::Write(file, bytes, size, written);
  }
  BOOL Flush(HANDLE file) override {
    BOOL answer = FALSE;
    return on_flush && on_flush(answer) ? answer : SystemCalls::Flush(file);
  }
  BOOL CopyNew(const std::wstring& source, const std::wstring& target) override {
    BOOL answer = FALSE;
    return on_copy && on_copy(target, answer) ? answer : SystemCalls::CopyNew(source, target);
  }
  BOOL MakeDirectory(const std::wstring& path) override {
    BOOL answer = FALSE;
    return on_make_directory && on_make_directory(path, answer) ? answer
                                                                : SystemCalls::MakeDirectory(path);
  }
  BOOL Replace(const std::wstring& replaced, const std::wstring& replacement,
               const std::wstring& displaced) override {
    BOOL answer = FALSE;
    return on_replace && on_replace(displaced, answer)
               ? answer
               : SystemCalls::Replace(replaced, replacement, displaced);
  }
  BOOL Move(const std::wstring& source, const std::wstring& target, DWORD flags) override {
    BOOL answer = FALSE;
    return on_move && on_move(source, answer) ? answer : SystemCalls::Move(source, target, flags);
  }
  BOOL Delete(const std::wstring& path) override {
    BOOL answer = FALSE;
    return on_delete && on_delete(path, answer) ? answer : SystemCalls::Delete(path);
  }
  BOOL GetSecurity(const std::wstring& path, SECURITY_INFORMATION parts, void* descriptor,
                   DWORD size, DWORD* needed) override;
  BOOL SetSecurity(const std::wstring& path, SECURITY_INFORMATION parts,
                   void* descriptor) override {
    BOOL answer = FALSE;
    return on_set_security && on_set_security(path, answer)
               ? answer
               : SystemCalls::SetSecurity(path, parts, descriptor);
  }
  BOOL GetSize(HANDLE file, LARGE_INTEGER* size) override {
    BOOL answer = FALSE;
    return on_size && on_size(*size, answer) ? answer : SystemCalls::GetSize(file, size);
  }
  BOOL InitializeDescriptor(SECURITY_DESCRIPTOR* descriptor) override {
    BOOL answer = FALSE;
    return on_initialize_descriptor && on_initialize_descriptor(answer)
               ? answer
               : SystemCalls::InitializeDescriptor(descriptor);
  }
  BOOL GetOwner(void* descriptor, PSID* owner) override {
    BOOL answer = FALSE;
    return on_get_owner && on_get_owner(answer) ? answer : SystemCalls::GetOwner(descriptor, owner);
  }
  BOOL GetGroup(void* descriptor, PSID* group) override {
    BOOL answer = FALSE;
    return on_get_group && on_get_group(answer) ? answer : SystemCalls::GetGroup(descriptor, group);
  }
  BOOL SetOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner) override {
    BOOL answer = FALSE;
    return on_set_owner && on_set_owner(answer) ? answer : SystemCalls::SetOwner(descriptor, owner);
  }
  BOOL SetGroup(SECURITY_DESCRIPTOR* descriptor, PSID group) override {
    BOOL answer = FALSE;
    return on_set_group && on_set_group(answer) ? answer : SystemCalls::SetGroup(descriptor, group);
  }
  std::string Sha256(std::string_view bytes) override {
    if (on_sha) {
      throw kestrune::Failure{*on_sha};
    }
    return SystemCalls::Sha256(bytes);
  }
  LSTATUS OpenKey(const std::wstring& path, DWORD access, HKEY* key) override {
    LSTATUS answer = ERROR_SUCCESS;
    return on_open_key && on_open_key(answer) ? answer : SystemCalls::OpenKey(path, access, key);
  }
  LSTATUS EnumerateValue(HKEY key, DWORD index, wchar_t* name, DWORD* length, DWORD* type,
                         DWORD* size) override {
    LSTATUS answer = ERROR_SUCCESS;
    return on_enumerate && on_enumerate(answer)
               ? answer
               : SystemCalls::EnumerateValue(key, index, name, length, type, size);
  }
  LSTATUS QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                     DWORD* size) override {
    LSTATUS answer = SystemCalls::QueryValue(key, name, type, data, size);
    if (after_query) {
      after_query(answer, *type, *size);
    }
    return answer;
  }
  LSTATUS CreateKey(const std::wstring& path, HKEY* key) override {
    LSTATUS answer = ERROR_SUCCESS;
    return on_create_key && on_create_key(answer) ? answer : SystemCalls::CreateKey(path, key);
  }
  LSTATUS SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                   DWORD size) override {
    LSTATUS answer = ERROR_SUCCESS;
    return on_set_value && on_set_value(answer)
               ? answer
               : SystemCalls::SetValue(key, name, type, data, size);
  }
  LSTATUS DeleteValue(HKEY key, const std::wstring& name) override {
    LSTATUS answer = ERROR_SUCCESS;
    return on_delete_value && on_delete_value(answer) ? answer
                                                      : SystemCalls::DeleteValue(key, name);
  }
};

}  // namespace altium_registration
