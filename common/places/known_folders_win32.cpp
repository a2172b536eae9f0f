#include "common/places/known_folders_win32.h"

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

/// Returns the shell's path of a folder in `path`; false also for an empty one.
bool ShellFolder(SystemCalls& calls, const KNOWNFOLDERID& folder, DWORD flags, std::wstring& path) {
  TaskText text;
  if (FAILED(calls.GetKnownFolder(folder, flags, text.Put())) || !text) {
    return false;
  }
  path = text.Get();
  return !path.empty();
}

/// Reads the profile directory of the process's user from the system's profile list.
bool ProfileFromList(SystemCalls& calls, std::wstring& profile) {
  ProcessUser user;
  LocalMemory<wchar_t> sid;
  if (!user.Read(calls, GetCurrentProcess()) || !ConvertSidToStringSidW(user.Sid(), sid.Put())) {
    return false;
  }
  const std::wstring name =
      std::wstring(L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\") + sid.Get();
  RegistryKey key;
  DWORD type = 0;
  if (calls.OpenKey(HKEY_LOCAL_MACHINE, name, KEY_READ, key.Put()) != ERROR_SUCCESS ||
      !ReadRegistryText(calls, key.Get(), L"ProfileImagePath", profile, type)) {
    return false;
  }
  return (type == REG_SZ || ExpandEnvironment(calls, std::wstring(profile), profile)) &&
         !profile.empty();
}

bool AppDataDirectory(SystemCalls& calls, const wchar_t* name, const KNOWNFOLDERID& fallback,
                      std::wstring& path, std::wstring& error_text) {
  error_text.clear();
  std::wstring profile;
  if (ProfileFromList(calls, profile) || ShellFolder(calls, FOLDERID_Profile, 0, profile)) {
    path = JoinPath({profile, L"AppData", name});
    return true;
  }
  error_text = L"Cannot determine the current Windows user profile directory.";
  return ShellFolder(calls, fallback, 0, path);
}

}  // namespace

bool LocalAppDataDirectory(SystemCalls& calls, std::wstring& path, std::wstring& error_text) {
  return AppDataDirectory(calls, L"Local", FOLDERID_LocalAppData, path, error_text);
}

bool RoamingAppDataDirectory(SystemCalls& calls, std::wstring& path, std::wstring& error_text) {
  return AppDataDirectory(calls, L"Roaming", FOLDERID_RoamingAppData, path, error_text);
}

bool TemporaryRoot(SystemCalls& calls, std::wstring& path, std::wstring& error_text) {
  std::wstring documents;
  if (!ShellFolder(calls, FOLDERID_PublicDocuments, KF_FLAG_CREATE, documents)) {
    error_text = L"Cannot locate the Public Documents directory.";
    return false;
  }
  path = JoinPath({documents, kProductFolder, kTemporaryFolder});
  return true;
}

std::wstring RuntimeRoot(const std::wstring& local_app_data) {
  return JoinPath({local_app_data, kProductFolder, kRuntimeFolder});
}

}  // namespace kestrune
