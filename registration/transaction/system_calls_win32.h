#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace altium_registration {

/// The Windows calls through which a store changes anything, and those on whose answers it decides.
/// Each does exactly what its Windows name says and leaves the last error (the registry calls
/// return it). Paths are in extended form already.
///
/// Only here can a test show what no test machine does on request: another owner, a DACL that reads
/// back differently, a replacement that stops half way, the end of the process at any call.
class SystemCalls {
 public:
  SystemCalls() = default;
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;
  virtual ~SystemCalls() = default;

  /// GetFileAttributesExW.
  virtual BOOL GetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA* data);
  /// CreateFileW.
  virtual HANDLE Create(const std::wstring& path, DWORD access, DWORD sharing,
                        SECURITY_ATTRIBUTES* security, DWORD disposition);
  /// GetFileSizeEx.
  virtual BOOL GetSize(HANDLE file, LARGE_INTEGER* size);
  /// WriteFile.
  virtual BOOL Write(HANDLE file, const void* bytes, DWORD size, DWORD* written);
  /// FlushFileBuffers.
  virtual BOOL Flush(HANDLE file);
  /// CopyFileW, failing when the target exists.
  virtual BOOL CopyNew(const std::wstring& source, const std::wstring& target);
  /// CreateDirectoryW.
  virtual BOOL MakeDirectory(const std::wstring& path);
  /// ReplaceFileW with a name for the replaced file and without flags: nothing that could lose
  /// security or attributes is to be ignored.
  virtual BOOL Replace(const std::wstring& replaced, const std::wstring& replacement,
                       const std::wstring& displaced);
  /// MoveFileExW.
  virtual BOOL Move(const std::wstring& source, const std::wstring& target, DWORD flags);
  /// DeleteFileW.
  virtual BOOL Delete(const std::wstring& path);
  /// GetFileSecurityW.
  virtual BOOL GetSecurity(const std::wstring& path, SECURITY_INFORMATION parts, void* descriptor,
                           DWORD size, DWORD* needed);
  /// SetFileSecurityW.
  virtual BOOL SetSecurity(const std::wstring& path, SECURITY_INFORMATION parts, void* descriptor);
  /// InitializeSecurityDescriptor.
  virtual BOOL InitializeDescriptor(SECURITY_DESCRIPTOR* descriptor);
  /// GetSecurityDescriptorOwner.
  virtual BOOL GetOwner(void* descriptor, PSID* owner);
  /// GetSecurityDescriptorGroup.
  virtual BOOL GetGroup(void* descriptor, PSID* group);
  /// SetSecurityDescriptorOwner.
  virtual BOOL SetOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner);
  /// SetSecurityDescriptorGroup.
  virtual BOOL SetGroup(SECURITY_DESCRIPTOR* descriptor, PSID group);
  /// The SHA-256 of common/sha256_win32.h, with its failures.
  virtual std::string Sha256(std::string_view bytes);
  /// RegOpenKeyExW below HKEY_CURRENT_USER.
  virtual LSTATUS OpenKey(const std::wstring& path, DWORD access, HKEY* key);
  /// RegEnumValueW without the data. `name` has `*length` units.
  virtual LSTATUS EnumerateValue(HKEY key, DWORD index, wchar_t* name, DWORD* length, DWORD* type,
                                 DWORD* size);
  /// RegQueryValueExW.
  virtual LSTATUS QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                             DWORD* size);
  /// RegCreateKeyExW below HKEY_CURRENT_USER, for setting values.
  virtual LSTATUS CreateKey(const std::wstring& path, HKEY* key);
  /// RegSetValueExW.
  virtual LSTATUS SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                           DWORD size);
  /// RegDeleteValueW.
  virtual LSTATUS DeleteValue(HKEY key, const std::wstring& name);
};

}  // namespace altium_registration
