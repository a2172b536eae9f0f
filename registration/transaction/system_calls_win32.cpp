#include "registration/transaction/system_calls_win32.h"

#include "common/sha256_win32.h"

namespace altium_registration {

BOOL SystemCalls::GetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA* data) {
  return GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, data);
}

HANDLE SystemCalls::Create(const std::wstring& path, DWORD access, DWORD sharing,
                           SECURITY_ATTRIBUTES* security, DWORD disposition) {
  return CreateFileW(path.c_str(), access, sharing, security, disposition, FILE_ATTRIBUTE_NORMAL,
                     nullptr);
}

BOOL SystemCalls::GetSize(HANDLE file, LARGE_INTEGER* size) {
  return GetFileSizeEx(file, size);
}

BOOL SystemCalls::Write(HANDLE file, const void* bytes, DWORD size, DWORD* written) {
  return WriteFile(file, bytes, size, written, nullptr);
}

BOOL SystemCalls::Flush(HANDLE file) {
  return FlushFileBuffers(file);
}

BOOL SystemCalls::CopyNew(const std::wstring& source, const std::wstring& target) {
  return CopyFileW(source.c_str(), target.c_str(), TRUE);
}

BOOL SystemCalls::MakeDirectory(const std::wstring& path) {
  return CreateDirectoryW(path.c_str(), nullptr);
}

BOOL SystemCalls::Replace(const std::wstring& replaced, const std::wstring& replacement,
                          const std::wstring& displaced) {
  return ReplaceFileW(replaced.c_str(), replacement.c_str(), displaced.c_str(), 0, nullptr,
                      nullptr);
}

BOOL SystemCalls::Move(const std::wstring& source, const std::wstring& target, DWORD flags) {
  return MoveFileExW(source.c_str(), target.c_str(), flags);
}

BOOL SystemCalls::Delete(const std::wstring& path) {
  return DeleteFileW(path.c_str());
}

BOOL SystemCalls::GetSecurity(const std::wstring& path, SECURITY_INFORMATION parts,
                              void* descriptor, DWORD size, DWORD* needed) {
  return GetFileSecurityW(path.c_str(), parts, descriptor, size, needed);
}

BOOL SystemCalls::SetSecurity(const std::wstring& path, SECURITY_INFORMATION parts,
                              void* descriptor) {
  return SetFileSecurityW(path.c_str(), parts, descriptor);
}

BOOL SystemCalls::InitializeDescriptor(SECURITY_DESCRIPTOR* descriptor) {
  return InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION);
}

BOOL SystemCalls::GetOwner(void* descriptor, PSID* owner) {
  BOOL defaulted = FALSE;
  return GetSecurityDescriptorOwner(descriptor, owner, &defaulted);
}

BOOL SystemCalls::GetGroup(void* descriptor, PSID* group) {
  BOOL defaulted = FALSE;
  return GetSecurityDescriptorGroup(descriptor, group, &defaulted);
}

BOOL SystemCalls::SetOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner) {
  return SetSecurityDescriptorOwner(descriptor, owner, FALSE);
}

BOOL SystemCalls::SetGroup(SECURITY_DESCRIPTOR* descriptor, PSID group) {
  return SetSecurityDescriptorGroup(descriptor, group, FALSE);
}

std::string SystemCalls::Sha256(std::string_view bytes) {
  return kestrune::Sha256(bytes);
}

LSTATUS SystemCalls::OpenKey(const std::wstring& path, DWORD access, HKEY* key) {
  return RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, access, key);
}

LSTATUS SystemCalls::EnumerateValue(HKEY key, DWORD index, wchar_t* name, DWORD* length,
                                    DWORD* type, DWORD* size) {
  return RegEnumValueW(key, index, name, length, nullptr, type, nullptr, size);
}

LSTATUS SystemCalls::QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                                DWORD* size) {
  return RegQueryValueExW(key, name.c_str(), nullptr, type, static_cast<BYTE*>(data), size);
}

LSTATUS SystemCalls::CreateKey(const std::wstring& path, HKEY* key) {
  return RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                         KEY_SET_VALUE, nullptr, key, nullptr);
}

LSTATUS SystemCalls::SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                              DWORD size) {
  return RegSetValueExW(key, name.c_str(), 0, type, static_cast<const BYTE*>(data), size);
}

LSTATUS SystemCalls::DeleteValue(HKEY key, const std::wstring& name) {
  return RegDeleteValueW(key, name.c_str());
}

}  // namespace altium_registration
