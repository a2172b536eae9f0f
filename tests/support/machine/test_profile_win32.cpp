#include "tests/support/machine/test_profile_win32.h"
#include "tests/support/remove_tree_win32.h"

#include <windows.h>

#include <stdexcept>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "registration/transaction/global_projects.h"
#include "registration/store/global_projects_key_win32.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/files_win32.h"

namespace altium_registration {

using kestrune::JoinPath;
namespace {

std::wstring UniqueName() {
  LARGE_INTEGER counter{};
  QueryPerformanceCounter(&counter);
  return L"KestruneTest-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
         std::to_wstring(counter.QuadPart);
}

std::wstring TemporaryFolder() {
  wchar_t folder[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH + 1, folder);
  return folder;
}

}  // namespace

TestProfile::TestProfile(std::string_view rcs) {
  const std::wstring name = UniqueName();
  directory_ = JoinPath(TemporaryFolder(), name);
  branch_ = L"Software\\Altium\\" + name;
  if (!kestrune::TryCreateDirectories(directory_)) {
    throw std::runtime_error("no test folder");
  }
  WriteFileBytes(Rcs(), rcs);
}

TestProfile::~TestProfile() {
  static_cast<void>(kestrune::RemoveTree(directory_));
  RegDeleteTreeW(HKEY_CURRENT_USER, branch_.c_str());
  RegDeleteKeyW(HKEY_CURRENT_USER, branch_.c_str());
}

StoreTarget TestProfile::Target() const {
  return {Rcs(), branch_, L"{GUID}"};
}

std::wstring TestProfile::Rcs() const {
  return JoinPath(directory_, L"DXP.RCS");
}

std::wstring TestProfile::Key() const {
  return GlobalProjectsPath(branch_);
}

void TestProfile::SetValue(const RegistryValue& value) const {
  kestrune::SystemCalls calls;
  WriteRegistryValue(calls, Key(), value);
}

void TestProfile::SetText(const wchar_t* name, std::wstring_view text) const {
  SetValue({name, kRegistryText, TextData(text)});
}

std::vector<std::wstring> TestProfile::Leftovers() const {
  std::vector<std::wstring> names = FolderEntries(directory_);
  std::erase_if(names, [](const std::wstring& name) {
    return name == L"DXP.RCS" || name == L"KestruneBackups";
  });
  return names;
}

std::string FileBytes(const std::wstring& path) {
  std::string bytes;
  constexpr std::uint64_t kLimit = std::uint64_t{1} << 30U;
  return kestrune::TryReadFile(path, kLimit, bytes) ? bytes : "<missing>";
}

void WriteFileBytes(const std::wstring& path, std::string_view bytes) {
  if (!kestrune::TryWriteFile(path, bytes)) {
    throw std::runtime_error("no test file");
  }
}

std::vector<std::wstring> FolderEntries(const std::wstring& directory) {
  return kestrune::NamesIn(directory);
}

}  // namespace altium_registration
