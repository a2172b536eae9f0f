#include "common/system/system_calls_win32.h"

#include <shlobj.h>

namespace kestrune {

BOOL SystemCalls::GetAttributes(const ExtendedPath& path, WIN32_FILE_ATTRIBUTE_DATA* data) {
  return GetFileAttributesExW(path.Get(), GetFileExInfoStandard, data);
}

BOOL SystemCalls::SetAttributes(const ExtendedPath& path, DWORD attributes) {
  return SetFileAttributesW(path.Get(), attributes);
}

HANDLE SystemCalls::FindFirst(const ExtendedPath& pattern, WIN32_FIND_DATAW* entry) {
  return FindFirstFileExW(pattern.Get(), FindExInfoBasic, entry, FindExSearchNameMatch, nullptr, 0);
}

BOOL SystemCalls::FindNext(HANDLE find, WIN32_FIND_DATAW* entry) {
  return FindNextFileW(find, entry);
}

HANDLE SystemCalls::Create(const ExtendedPath& path, const FileOpening& opening) {
  return CreateFileW(path.Get(), opening.access, opening.sharing, opening.security,
                     opening.disposition, opening.flags, nullptr);
}

BOOL SystemCalls::Copy(const ExtendedPath& source, const ExtendedPath& target,
                       BOOL fail_if_exists) {
  return CopyFileW(source.Get(), target.Get(), fail_if_exists);
}

BOOL SystemCalls::Replace(const ExtendedPath& replaced, const ExtendedPath& replacement,
                          const ExtendedPath& displaced) {
  return ReplaceFileW(replaced.Get(), replacement.Get(), displaced.Get(), 0, nullptr, nullptr);
}

BOOL SystemCalls::Move(const ExtendedPath& source, const ExtendedPath& target, DWORD flags) {
  return MoveFileExW(source.Get(), target.Get(), flags);
}

BOOL SystemCalls::Delete(const ExtendedPath& path) {
  return DeleteFileW(path.Get());
}

BOOL SystemCalls::MakeDirectory(const ExtendedPath& path) {
  return CreateDirectoryW(path.Get(), nullptr);
}

BOOL SystemCalls::DeleteDirectory(const ExtendedPath& path) {
  return RemoveDirectoryW(path.Get());
}

BOOL SystemCalls::GetSpace(const ExtendedPath& folder, ULARGE_INTEGER* available,
                           ULARGE_INTEGER* total) {
  return GetDiskFreeSpaceExW(folder.Get(), available, total, nullptr);
}

BOOL SystemCalls::GetClusterSize(const ExtendedPath& folder, DWORD* bytes) {
  DWORD sectors = 0;
  DWORD sector_bytes = 0;
  DWORD free = 0;
  DWORD all = 0;
  const BOOL succeeded = GetDiskFreeSpaceW(folder.Get(), &sectors, &sector_bytes, &free, &all);
  *bytes = sectors * sector_bytes;
  return succeeded;
}

UINT SystemCalls::GetDriveKind(const std::wstring& root) {
  return GetDriveTypeW(root.c_str());
}

DWORD SystemCalls::GetTemporaryFolder(DWORD size, wchar_t* folder) {
  return GetTempPathW(size, folder);
}

UINT SystemCalls::MakeTemporaryFile(const wchar_t* folder, const wchar_t* prefix, wchar_t* name) {
  return GetTempFileNameW(folder, prefix, 0, name);
}

BOOL SystemCalls::Close(HANDLE file) {
  return CloseHandle(file);
}

BOOL SystemCalls::GetSize(HANDLE file, LARGE_INTEGER* size) {
  return GetFileSizeEx(file, size);
}

BOOL SystemCalls::GetInformation(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
  return GetFileInformationByHandle(file, information);
}

BOOL SystemCalls::GetTag(HANDLE file, FILE_ATTRIBUTE_TAG_INFO* tag) {
  return GetFileInformationByHandleEx(file, FileAttributeTagInfo, tag, sizeof *tag);
}

DWORD SystemCalls::GetFinalPath(HANDLE file, wchar_t* path, DWORD size, DWORD flags) {
  return GetFinalPathNameByHandleW(file, path, size, flags);
}

BOOL SystemCalls::Read(HANDLE file, void* bytes, DWORD size, DWORD* read) {
  return ReadFile(file, bytes, size, read, nullptr);
}

BOOL SystemCalls::Write(HANDLE file, const void* bytes, DWORD size, DWORD* written) {
  return WriteFile(file, bytes, size, written, nullptr);
}

BOOL SystemCalls::SetPointer(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position,
                             DWORD method) {
  return SetFilePointerEx(file, distance, position, method);
}

BOOL SystemCalls::SetEnd(HANDLE file) {
  return SetEndOfFile(file);
}

BOOL SystemCalls::Flush(HANDLE file) {
  return FlushFileBuffers(file);
}

BOOL SystemCalls::GetWriteTime(HANDLE file, FILETIME* time) {
  return GetFileTime(file, nullptr, nullptr, time);
}

BOOL SystemCalls::SetWriteTime(HANDLE file, const FILETIME& time) {
  return SetFileTime(file, nullptr, nullptr, &time);
}

BOOL SystemCalls::GetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts,
                              void* descriptor, DWORD size, DWORD* needed) {
  return GetFileSecurityW(path.Get(), parts, descriptor, size, needed);
}

BOOL SystemCalls::SetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts,
                              void* descriptor) {
  return SetFileSecurityW(path.Get(), parts, descriptor);
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

BOOL SystemCalls::AcquireProvider(HCRYPTPROV* provider) {
  return CryptAcquireContextW(provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT);
}

BOOL SystemCalls::CreateHash(HCRYPTPROV provider, HCRYPTHASH* hash) {
  return CryptCreateHash(provider, CALG_SHA_256, 0, 0, hash);
}

BOOL SystemCalls::HashData(HCRYPTHASH hash, const void* bytes, DWORD size) {
  return CryptHashData(hash, static_cast<const BYTE*>(bytes), size, 0);
}

BOOL SystemCalls::GetHashValue(HCRYPTHASH hash, BYTE* value, DWORD* size) {
  return CryptGetHashParam(hash, HP_HASHVAL, value, size, 0);
}

DWORD SystemCalls::ReadProfileText(const wchar_t* section, const wchar_t* key,
                                   const wchar_t* fallback, wchar_t* text, DWORD size,
                                   const std::wstring& path) {
  return GetPrivateProfileStringW(section, key, fallback, text, size, path.c_str());
}

UINT SystemCalls::ReadProfileNumber(const wchar_t* section, const wchar_t* key, INT fallback,
                                    const std::wstring& path) {
  return GetPrivateProfileIntW(section, key, fallback, path.c_str());
}

LSTATUS SystemCalls::OpenKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) {
  return RegOpenKeyExW(parent, path.c_str(), 0, access, key);
}

LSTATUS SystemCalls::CreateKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) {
  return RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                         key, nullptr);
}

LSTATUS SystemCalls::EnumerateKey(HKEY key, DWORD index, wchar_t* name, DWORD* length) {
  return RegEnumKeyExW(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS SystemCalls::EnumerateValue(HKEY key, DWORD index, wchar_t* name, DWORD* length,
                                    DWORD* type, DWORD* size) {
  return RegEnumValueW(key, index, name, length, nullptr, type, nullptr, size);
}

LSTATUS SystemCalls::QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                                DWORD* size) {
  return RegQueryValueExW(key, name.c_str(), nullptr, type, static_cast<BYTE*>(data), size);
}

LSTATUS SystemCalls::SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                              DWORD size) {
  return RegSetValueExW(key, name.c_str(), 0, type, static_cast<const BYTE*>(data), size);
}

LSTATUS SystemCalls::DeleteValue(HKEY key, const std::wstring& name) {
  return RegDeleteValueW(key, name.c_str());
}

HRESULT SystemCalls::GetKnownFolder(const KNOWNFOLDERID& folder, DWORD flags, wchar_t** path) {
  return SHGetKnownFolderPath(folder, flags, nullptr, path);
}

HRESULT SystemCalls::GetShellFolder(int folder, wchar_t* path) {
  return SHGetFolderPathW(nullptr, folder, nullptr, 0, path);
}

DWORD SystemCalls::ExpandText(const std::wstring& text, wchar_t* expanded, DWORD size) {
  return ExpandEnvironmentStringsW(text.c_str(), expanded, size);
}

DWORD SystemCalls::GetProgramPath(wchar_t* path, DWORD size) {
  return GetModuleFileNameW(nullptr, path, size);
}

BOOL SystemCalls::GetUser(wchar_t* name, DWORD* size) {
  return GetUserNameW(name, size);
}

HANDLE SystemCalls::SnapshotProcesses() {
  return CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
}

BOOL SystemCalls::FirstProcess(HANDLE snapshot, PROCESSENTRY32W* entry) {
  return Process32FirstW(snapshot, entry);
}

BOOL SystemCalls::NextProcess(HANDLE snapshot, PROCESSENTRY32W* entry) {
  return Process32NextW(snapshot, entry);
}

HANDLE SystemCalls::OpenProcess(DWORD access, DWORD process_id) {
  return ::OpenProcess(access, FALSE, process_id);
}

DWORD SystemCalls::GetId(HANDLE process) {
  return GetProcessId(process);
}

BOOL SystemCalls::GetSession(DWORD process_id, DWORD* session) {
  return ProcessIdToSessionId(process_id, session);
}

DWORD SystemCalls::WaitForEnd(HANDLE process, DWORD milliseconds) {
  return WaitForSingleObject(process, milliseconds);
}

BOOL SystemCalls::GetCreationTime(HANDLE process, FILETIME* time) {
  FILETIME ignored{};
  return GetProcessTimes(process, time, &ignored, &ignored, &ignored);
}

BOOL SystemCalls::GetExitCode(HANDLE process, DWORD* code) {
  return GetExitCodeProcess(process, code);
}

BOOL SystemCalls::GetImagePath(HANDLE process, wchar_t* path, DWORD* length) {
  return QueryFullProcessImageNameW(process, 0, path, length);
}

BOOL SystemCalls::OpenToken(HANDLE process, DWORD access, HANDLE* token) {
  return OpenProcessToken(process, access, token);
}

BOOL SystemCalls::GetTokenData(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* data, DWORD size,
                               DWORD* needed) {
  return GetTokenInformation(token, kind, data, size, needed);
}

void SystemCalls::GetLocalClock(SYSTEMTIME* time) {
  GetLocalTime(time);
}

void SystemCalls::GetUtcClock(SYSTEMTIME* time) {
  GetSystemTime(time);
}

LONGLONG SystemCalls::GetCounter() {
  LARGE_INTEGER counter{};
  QueryPerformanceCounter(&counter);
  return counter.QuadPart;
}

ULONGLONG SystemCalls::GetTicks() {
  return GetTickCount64();
}

void SystemCalls::Wait(DWORD milliseconds) {
  Sleep(milliseconds);
}

}  // namespace kestrune
