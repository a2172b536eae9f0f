#include "common/places/known_folders_win32.h"

#include <initguid.h>
#include <windows.h>
#include <knownfolders.h>
#include <sddl.h>
#include <shlobj.h>

#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/places/process_user_win32.h"
#include "common/places/product_files.h"
#include "common/system/registry_win32.h"

namespace kestrune {
namespace {

bool AppDataDirectory(const wchar_t* name, const KNOWNFOLDERID& fallback, std::wstring& path,
                      std::wstring& error_text, FolderCalls& calls) {
  error_text.clear();
  std::wstring profile;
  if (calls.ProfileFromList(profile) || calls.ShellFolder(FOLDERID_Profile, 0, profile)) {
    path = JoinPath({profile, L"AppData", name});
    return true;
  }
  error_text = L"Cannot determine the current Windows user profile directory.";
  return calls.ShellFolder(fallback, 0, path);
}

}  // namespace

bool FolderCalls::ShellFolder(const KNOWNFOLDERID& folder, DWORD flags, std::wstring& path) {
  TaskText text;
  if (FAILED(SHGetKnownFolderPath(folder, flags, nullptr, text.Put())) || !text) {
    return false;
  }
  path = text.Get();
  return !path.empty();
}

bool FolderCalls::ProfileFromList(std::wstring& profile) {
  ProcessUser user;
  LocalMemory<wchar_t> sid;
  if (!user.Read(GetCurrentProcess()) || !ConvertSidToStringSidW(user.Sid(), sid.Put())) {
    return false;
  }
  const std::wstring name =
      std::wstring(L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\") + sid.Get();
  RegistryKey key;
  DWORD type = 0;
  SystemCalls calls;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, KEY_READ, key.Put()) != ERROR_SUCCESS ||
      !ReadRegistryText(calls, key.Get(), L"ProfileImagePath", profile, type)) {
    return false;
  }
  return (type == REG_SZ || ExpandEnvironment(std::wstring(profile), profile)) && !profile.empty();
}

bool LocalAppDataDirectory(std::wstring& path, std::wstring& error_text, FolderCalls& calls) {
  return AppDataDirectory(L"Local", FOLDERID_LocalAppData, path, error_text, calls);
}

bool LocalAppDataDirectory(std::wstring& path, std::wstring& error_text) {
  FolderCalls calls;
  return LocalAppDataDirectory(path, error_text, calls);
}

bool RoamingAppDataDirectory(std::wstring& path, std::wstring& error_text, FolderCalls& calls) {
  return AppDataDirectory(L"Roaming", FOLDERID_RoamingAppData, path, error_text, calls);
}

bool RoamingAppDataDirectory(std::wstring& path, std::wstring& error_text) {
  FolderCalls calls;
  return RoamingAppDataDirectory(path, error_text, calls);
}

bool TemporaryRoot(std::wstring& path, std::wstring& error_text, FolderCalls& calls) {
  std::wstring documents;
  if (!calls.ShellFolder(FOLDERID_PublicDocuments, KF_FLAG_CREATE, documents)) {
    error_text = L"Cannot locate the Public Documents directory.";
    return false;
  }
  path = JoinPath({documents, kProductFolder, kTemporaryFolder});
  return true;
}

bool TemporaryRoot(std::wstring& path, std::wstring& error_text) {
  FolderCalls calls;
  return TemporaryRoot(path, error_text, calls);
}

std::wstring RuntimeRoot(const std::wstring& local_app_data) {
  return JoinPath({local_app_data, kProductFolder, kRuntimeFolder});
}

}  // namespace kestrune
