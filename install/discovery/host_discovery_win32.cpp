#include "install/discovery/host_discovery_win32.h"

#include <windows.h>

#include <set>
#include <string>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/places/known_folders_win32.h"
#include "common/text/ordinal.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/system/registry_win32.h"
#include "install/discovery/host_product.h"

namespace kestrune {
namespace {

constexpr wchar_t kUninstallKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";

/// Holds the user's profile folders and registry branches of all instances.
struct UserProfiles {
  std::wstring profiles_root;
  NameListing profiles;
  NameListing branches;
};

/// Returns the folders in `root`, without links.
NameListing ListProfiles(SystemCalls& calls, const std::wstring& root) {
  NameListing listing;
  WIN32_FIND_DATAW entry{};
  const ExtendedPath pattern = ExtendedPath(root).Entry(L"*");
  const FindHandle find(calls.FindFirst(pattern, &entry));
  if (!find) {
    const DWORD code = GetLastError();
    if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND) {
      listing.outcome = NameListing::Outcome::CannotRead;
    }
    return listing;
  }
  do {
    const DWORD kind =
        entry.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
    if (kind == FILE_ATTRIBUTE_DIRECTORY) {
      listing.names.emplace_back(entry.cFileName);
    }
  } while (calls.FindNext(find.Get(), &entry));
  if (GetLastError() != ERROR_NO_MORE_FILES) {
    listing.outcome = NameListing::Outcome::CannotEnumerate;
  }
  return listing;
}

NameListing ListBranches(SystemCalls& calls) {
  NameListing listing;
  RegistryKey key;
  const LSTATUS opened = calls.OpenKey(HKEY_CURRENT_USER, L"Software\\Altium", KEY_READ, key.Put());
  if (opened == ERROR_FILE_NOT_FOUND || opened == ERROR_PATH_NOT_FOUND) {
    return listing;
  }
  if (opened != ERROR_SUCCESS) {
    listing.outcome = NameListing::Outcome::CannotRead;
  } else if (!ListSubkeys(calls, key.Get(), listing.names)) {
    listing.outcome = NameListing::Outcome::CannotEnumerate;
  }
  return listing;
}

UserProfiles ListUserProfiles(SystemCalls& calls) {
  UserProfiles user;
  std::wstring app_data;
  std::wstring error_text;
  if (!RoamingAppDataDirectory(calls, app_data, error_text)) {
    user.profiles.outcome = NameListing::Outcome::CannotRead;
    return user;
  }
  user.profiles_root = JoinPath(app_data, L"Altium");
  user.profiles = ListProfiles(calls, user.profiles_root);
  user.branches = ListBranches(calls);
  return user;
}

/// Returns the value's text as stored, unexpanded; empty when it is absent or has another type.
std::wstring TextValue(SystemCalls& calls, HKEY key, const wchar_t* name) {
  std::wstring text;
  DWORD type = 0;
  return ReadRegistryText(calls, key, name, text, type) ? text : std::wstring();
}

std::wstring FindHostProgram(SystemCalls& calls, const HostInstance& instance) {
  std::wstring named = PathFromDisplayIcon(instance.display_icon);
  if (NamesHostProgram(named) && QueryFileKind(calls, named) == FileKind::RegularFile) {
    return named;
  }
  if (instance.install_location.empty()) {
    return {};
  }
  for (const wchar_t* name : {L"X2.exe", L"dxp.exe"}) {
    std::wstring candidate = JoinPath(instance.install_location, name);
    if (QueryFileKind(calls, candidate) == FileKind::RegularFile) {
      return candidate;
    }
  }
  return {};
}

/// Calls FindHostProgram and adds the instance's GUID to a failure.
std::wstring FindHostProgramOf(SystemCalls& calls, const HostInstance& instance) {
  try {
    return FindHostProgram(calls, instance);
  } catch (Failure& failure) {
    failure.subject += L" GUID=" + instance.guid;
    throw;
  }
}

bool PassesFilters(const HostInstance& instance, const HostFilter& filter) {
  return (filter.major == 0 || filter.major == instance.version.major) &&
         (filter.profile.empty() || EqualIgnoringCase(filter.profile, instance.guid));
}

void AddUserProfile(const UserProfiles& user, HostInstance& instance) {
  std::wstring name;
  if (!MatchInstanceName(instance.guid, user.profiles, user.branches, name, instance.reason)) {
    instance.needs_verification = true;
    return;
  }
  instance.profile_directory = JoinPath(user.profiles_root, name);
  instance.registry_branch = L"Software\\Altium\\" + name;
  instance.rcs_path = JoinPath(instance.profile_directory, L"DXP.RCS");
}

/// Collects instances from both registry views.
class Discovery {
 public:
  Discovery(SystemCalls& calls, const HostFilter& filter)
      : calls_(calls), filter_(filter), profiles_(ListUserProfiles(calls)) {}

  void ReadView(REGSAM view) {
    RegistryKey uninstall;
    if (calls_.OpenKey(HKEY_LOCAL_MACHINE, kUninstallKey, KEY_READ | view, uninstall.Put()) !=
        ERROR_SUCCESS) {
      return;
    }
    std::vector<std::wstring> names;
    // When the enumeration fails, the names before the failure are used.
    static_cast<void>(ListSubkeys(calls_, uninstall.Get(), names));
    for (const std::wstring& name : names) {
      RegistryKey entry;
      if (calls_.OpenKey(uninstall.Get(), name, KEY_READ | view, entry.Put()) == ERROR_SUCCESS) {
        ReadEntry(entry.Get(), view == KEY_WOW64_64KEY);
      }
    }
  }

  std::vector<HostInstance> Take() { return std::move(instances_); }

 private:
  void ReadEntry(HKEY key, bool in_64_bit_view) {
    HostInstance instance;
    instance.display_name = TextValue(calls_, key, L"DisplayName");
    if (!IsHostProductName(instance.display_name)) {
      return;
    }
    instance.uninstall_string = TextValue(calls_, key, L"UninstallString");
    instance.guid = GuidFromUninstallString(instance.uninstall_string);
    // The GUID counts as seen even when the filter excludes the entry: an entry with the same GUID
    // in the other view is the same installation.
    if (instance.guid.empty() || !taken_.insert(instance.guid).second) {
      return;
    }
    instance.in_64_bit_view = in_64_bit_view;
    instance.version_text = TextValue(calls_, key, L"DisplayVersion");
    instance.version = ParseHostVersion(instance.version_text);
    if (!PassesFilters(instance, filter_)) {
      return;
    }
    instance.install_location = TextValue(calls_, key, L"InstallLocation");
    instance.display_icon = TextValue(calls_, key, L"DisplayIcon");
    instance.executable = FindHostProgramOf(calls_, instance);
    if (!instance.executable.empty()) {
      instance.resource_path = JoinPath(ParentPath(instance.executable), L"System\\AdvPcb.rcs");
    }
    AddUserProfile(profiles_, instance);
    instances_.push_back(std::move(instance));
  }

  SystemCalls& calls_;
  const HostFilter& filter_;
  UserProfiles profiles_;
  std::set<std::wstring> taken_;
  std::vector<HostInstance> instances_;
};

}  // namespace

std::vector<HostInstance> DiscoverHostInstances(SystemCalls& calls, const HostFilter& filter) {
  Discovery discovery(calls, filter);
  discovery.ReadView(KEY_WOW64_32KEY);
  discovery.ReadView(KEY_WOW64_64KEY);
  return discovery.Take();
}

}  // namespace kestrune
