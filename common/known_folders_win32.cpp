#include "common/known_folders_win32.h"

#include <initguid.h>
#include <windows.h>
#include <knownfolders.h>
#include <sddl.h>
#include <shlobj.h>

#include "common/file_win32.h"
#include "common/owners_win32.h"
#include "common/path.h"
#include "common/process_user_win32.h"
#include "common/registry_win32.h"

namespace kestrune {
namespace {

bool ShellFolder(const KNOWNFOLDERID& folder, DWORD flags, std::wstring& path) {
  TaskText text;
  if (FAILED(SHGetKnownFolderPath(folder, flags, nullptr, text.Put())) || !text) {
    return false;
  }
  path = text.Get();
  return !path.empty();
}

/// The profile directory as the system's own profile list has it for the process's user.
bool ProfileFromList(std::wstring& profile) {
  ProcessUser user;
  LocalMemory<wchar_t> sid;
  if (!user.Read(GetCurrentProcess()) || !ConvertSidToStringSidW(user.Sid(), sid.Put())) {
    return false;
  }
  const std::wstring name =
      std::wstring(L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\") + sid.Get();
  RegistryKey key;
  DWORD type = 0;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, KEY_READ, key.Put()) != ERROR_SUCCESS ||
      !ReadRegistryText(key.Get(), L"ProfileImagePath", profile, type)) {
    return false;
  }
  return (type == REG_SZ || ExpandEnvironment(std::wstring(profile), profile)) && !profile.empty();
}

bool AppDataDirectory(const wchar_t* name, const KNOWNFOLDERID& fallback, std::wstring& path,
                      std::wstring& error_text) {
  error_text.clear();
  std::wstring profile;
  if (ProfileFromList(profile) || ShellFolder(FOLDERID_Profile, 0, profile)) {
    path = JoinPath(JoinPath(profile, L"AppData"), name);
    return true;
  }
  error_text = L"Cannot determine the current Windows user profile directory.";
  return ShellFolder(fallback, 0, path);
}

}  // namespace

bool LocalAppDataDirectory(std::wstring& path, std::wstring& error_text) {
  return AppDataDirectory(L"Local", FOLDERID_LocalAppData, path, error_text);
}

bool RoamingAppDataDirectory(std::wstring& path, std::wstring& error_text) {
  return AppDataDirectory(L"Roaming", FOLDERID_RoamingAppData, path, error_text);
}

bool TemporaryRoot(std::wstring& path, std::wstring& error_text) {
  std::wstring documents;
  if (!ShellFolder(FOLDERID_PublicDocuments, KF_FLAG_CREATE, documents)) {
    error_text = L"Cannot locate the Public Documents directory.";
    return false;
  }
  path = JoinPath(JoinPath(documents, L"Kestrune"), L"Temp");
  return true;
}

std::wstring RuntimeRoot(const std::wstring& local_app_data) {
  return JoinPath(JoinPath(local_app_data, L"Kestrune"), L"Runtime");
}

}  // namespace kestrune
