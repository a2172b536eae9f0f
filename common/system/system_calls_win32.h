#pragma once

#include <windows.h>
#include <wincrypt.h>
#include <shtypes.h>
#include <tlhelp32.h>

#include <string>

#include "common/system/extended_path_win32.h"

namespace kestrune {

/// Holds the arguments of CreateFileW.
struct FileOpening {
  DWORD access = 0;
  DWORD sharing = 0;
  DWORD disposition = OPEN_EXISTING;
  DWORD flags = FILE_ATTRIBUTE_NORMAL;
  SECURITY_ATTRIBUTES* security = nullptr;
};

/// Makes all calls to Windows for files, the registry, known folders, digests, processes and time;
/// tests/checks/doors reports them anywhere else. The comment of a function names the one call that
/// it makes.
///
/// A failed call on files, security, digests or processes leaves its code in the thread's last
/// error, which the caller reads in the next statement. Registry calls return their code, calls of
/// the shell an HRESULT. One object is created at the start and passed down. Tests derive from it
/// to simulate conditions that a test machine cannot produce: another owner, a failing write, a
/// replacement that stops half way, the end of the process at any call.
class SystemCalls {
 public:
  SystemCalls() = default;
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;
  virtual ~SystemCalls() = default;

  // Files by their path

  /// GetFileAttributesExW.
  virtual BOOL GetAttributes(const ExtendedPath& path, WIN32_FILE_ATTRIBUTE_DATA* data);
  /// SetFileAttributesW.
  virtual BOOL SetAttributes(const ExtendedPath& path, DWORD attributes);
  /// FindFirstFileExW without short names. INVALID_HANDLE_VALUE when it fails.
  virtual HANDLE FindFirst(const ExtendedPath& pattern, WIN32_FIND_DATAW* entry);
  /// FindNextFileW.
  virtual BOOL FindNext(HANDLE find, WIN32_FIND_DATAW* entry);
  /// CreateFileW. INVALID_HANDLE_VALUE when it fails.
  virtual HANDLE Create(const ExtendedPath& path, const FileOpening& opening);
  /// CopyFileW.
  virtual BOOL Copy(const ExtendedPath& source, const ExtendedPath& target, BOOL fail_if_exists);
  /// ReplaceFileW with a name for the replaced file and without flags, so that no failure to keep
  /// security or attributes is ignored.
  virtual BOOL Replace(const ExtendedPath& replaced, const ExtendedPath& replacement,
                       const ExtendedPath& displaced);
  /// MoveFileExW.
  virtual BOOL Move(const ExtendedPath& source, const ExtendedPath& target, DWORD flags);
  /// DeleteFileW.
  virtual BOOL Delete(const ExtendedPath& path);
  /// CreateDirectoryW.
  virtual BOOL MakeDirectory(const ExtendedPath& path);
  /// RemoveDirectoryW.
  virtual BOOL DeleteDirectory(const ExtendedPath& path);
  /// GetDiskFreeSpaceExW: the free and the total bytes of the folder's disk for the caller.
  virtual BOOL GetSpace(const ExtendedPath& folder, ULARGE_INTEGER* available,
                        ULARGE_INTEGER* total);
  /// GetDiskFreeSpaceW, only the bytes of a cluster.
  virtual BOOL GetClusterSize(const ExtendedPath& folder, DWORD* bytes);
  /// GetDriveTypeW for a root such as "C:\".
  virtual UINT GetDriveKind(const std::wstring& root);
  /// GetTempPathW.
  virtual DWORD GetTemporaryFolder(DWORD size, wchar_t* folder);
  /// GetTempFileNameW with a number that Windows chooses; creates the file.
  virtual UINT MakeTemporaryFile(const wchar_t* folder, const wchar_t* prefix, wchar_t* name);

  // Open files

  /// CloseHandle, for a caller that checks for a failure. The handle is invalid in any case.
  virtual BOOL Close(HANDLE file);
  /// GetFileSizeEx.
  virtual BOOL GetSize(HANDLE file, LARGE_INTEGER* size);
  /// GetFileInformationByHandle.
  virtual BOOL GetInformation(HANDLE file, BY_HANDLE_FILE_INFORMATION* information);
  /// GetFileInformationByHandleEx for the attributes and the reparse tag.
  virtual BOOL GetTag(HANDLE file, FILE_ATTRIBUTE_TAG_INFO* tag);
  /// GetFinalPathNameByHandleW.
  virtual DWORD GetFinalPath(HANDLE file, wchar_t* path, DWORD size, DWORD flags);
  /// ReadFile.
  virtual BOOL Read(HANDLE file, void* bytes, DWORD size, DWORD* read);
  /// WriteFile.
  virtual BOOL Write(HANDLE file, const void* bytes, DWORD size, DWORD* written);
  /// SetFilePointerEx.
  virtual BOOL SetPointer(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position,
                          DWORD method);
  /// SetEndOfFile.
  virtual BOOL SetEnd(HANDLE file);
  /// FlushFileBuffers.
  virtual BOOL Flush(HANDLE file);
  /// GetFileTime, only the time of the last write.
  virtual BOOL GetWriteTime(HANDLE file, FILETIME* time);
  /// SetFileTime, only the time of the last write.
  virtual BOOL SetWriteTime(HANDLE file, const FILETIME& time);

  // Security

  /// GetFileSecurityW.
  virtual BOOL GetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts, void* descriptor,
                           DWORD size, DWORD* needed);
  /// SetFileSecurityW.
  virtual BOOL SetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts, void* descriptor);
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

  // Digests

  /// CryptAcquireContextW for a provider of type PROV_RSA_AES, with CRYPT_VERIFYCONTEXT.
  virtual BOOL AcquireProvider(HCRYPTPROV* provider);
  /// CryptCreateHash for SHA-256.
  virtual BOOL CreateHash(HCRYPTPROV provider, HCRYPTHASH* hash);
  /// CryptHashData.
  virtual BOOL HashData(HCRYPTHASH hash, const void* bytes, DWORD size);
  /// CryptGetHashParam for the hash value.
  virtual BOOL GetHashValue(HCRYPTHASH hash, BYTE* value, DWORD* size);

  // Profile files ("INI"); a path is not in extended form, which these calls do not support

  /// GetPrivateProfileStringW.
  virtual DWORD ReadProfileText(const wchar_t* section, const wchar_t* key, const wchar_t* fallback,
                                wchar_t* text, DWORD size, const std::wstring& path);
  /// GetPrivateProfileIntW.
  virtual UINT ReadProfileNumber(const wchar_t* section, const wchar_t* key, INT fallback,
                                 const std::wstring& path);

  // Registry

  /// RegOpenKeyExW.
  virtual LSTATUS OpenKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key);
  /// RegCreateKeyExW for a non-volatile key, without a class and with inherited security.
  virtual LSTATUS CreateKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key);
  /// RegEnumKeyExW. `name` has `*length` units.
  virtual LSTATUS EnumerateKey(HKEY key, DWORD index, wchar_t* name, DWORD* length);
  /// RegEnumValueW without the data. `name` has `*length` units.
  virtual LSTATUS EnumerateValue(HKEY key, DWORD index, wchar_t* name, DWORD* length, DWORD* type,
                                 DWORD* size);
  /// RegQueryValueExW.
  virtual LSTATUS QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                             DWORD* size);
  /// RegSetValueExW.
  virtual LSTATUS SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                           DWORD size);
  /// RegDeleteValueW.
  virtual LSTATUS DeleteValue(HKEY key, const std::wstring& name);

  // Folders and the environment

  /// SHGetKnownFolderPath; the text is freed with CoTaskMemFree.
  virtual HRESULT GetKnownFolder(const KNOWNFOLDERID& folder, DWORD flags, wchar_t** path);
  /// SHGetFolderPathW. `path` has MAX_PATH units.
  virtual HRESULT GetShellFolder(int folder, wchar_t* path);
  /// ExpandEnvironmentStringsW.
  virtual DWORD ExpandText(const std::wstring& text, wchar_t* expanded, DWORD size);
  /// GetModuleFileNameW of this program.
  virtual DWORD GetProgramPath(wchar_t* path, DWORD size);
  /// GetUserNameW.
  virtual BOOL GetUser(wchar_t* name, DWORD* size);

  // Processes

  /// CreateToolhelp32Snapshot of all processes. INVALID_HANDLE_VALUE when it fails.
  virtual HANDLE SnapshotProcesses();
  /// Process32FirstW.
  virtual BOOL FirstProcess(HANDLE snapshot, PROCESSENTRY32W* entry);
  /// Process32NextW.
  virtual BOOL NextProcess(HANDLE snapshot, PROCESSENTRY32W* entry);
  /// OpenProcess without inheritance. Null when it fails.
  virtual HANDLE OpenProcess(DWORD access, DWORD process_id);
  /// GetProcessId.
  virtual DWORD GetId(HANDLE process);
  /// ProcessIdToSessionId.
  virtual BOOL GetSession(DWORD process_id, DWORD* session);
  /// WaitForSingleObject.
  virtual DWORD WaitForEnd(HANDLE process, DWORD milliseconds);
  /// GetProcessTimes, only the time of creation.
  virtual BOOL GetCreationTime(HANDLE process, FILETIME* time);
  /// GetExitCodeProcess.
  virtual BOOL GetExitCode(HANDLE process, DWORD* code);
  /// QueryFullProcessImageNameW as a Windows path.
  virtual BOOL GetImagePath(HANDLE process, wchar_t* path, DWORD* length);
  /// OpenProcessToken.
  virtual BOOL OpenToken(HANDLE process, DWORD access, HANDLE* token);
  /// GetTokenInformation.
  virtual BOOL GetTokenData(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* data, DWORD size,
                            DWORD* needed);

  // Time

  /// GetLocalTime.
  virtual void GetLocalClock(SYSTEMTIME* time);
  /// GetSystemTime.
  virtual void GetUtcClock(SYSTEMTIME* time);
  /// QueryPerformanceCounter, which never fails.
  virtual LONGLONG GetCounter();
  /// GetTickCount64: milliseconds since the system started.
  virtual ULONGLONG GetTicks();
  /// Sleep.
  virtual void Wait(DWORD milliseconds);
};

}  // namespace kestrune
