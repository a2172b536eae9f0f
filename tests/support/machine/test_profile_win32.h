#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/registry_value.h"
#include "registration/store/windows_store_win32.h"

namespace altium_registration {

/// Creates a folder with a DXP.RCS and a registry branch, and removes both at the end of the scope.
class TestProfile {
 public:
  explicit TestProfile(std::string_view rcs);
  TestProfile(const TestProfile&) = delete;
  TestProfile& operator=(const TestProfile&) = delete;
  ~TestProfile();

  [[nodiscard]] StoreTarget Target() const;
  [[nodiscard]] std::wstring Directory() const { return directory_; }
  [[nodiscard]] std::wstring Rcs() const;
  [[nodiscard]] std::wstring Branch() const { return branch_; }
  /// Returns the Global Projects key below HKEY_CURRENT_USER.
  [[nodiscard]] std::wstring Key() const;

  void SetValue(const RegistryValue& value) const;
  void SetText(const wchar_t* name, std::wstring_view text) const;

  /// Returns the names of the entries of the profile folder except DXP.RCS and KestruneBackups.
  [[nodiscard]] std::vector<std::wstring> Leftovers() const;

 private:
  std::wstring directory_;
  std::wstring branch_;
};

/// Returns the bytes of a file; "<missing>" when it cannot be read.
std::string FileBytes(const std::wstring& path);
void WriteFileBytes(const std::wstring& path, std::string_view bytes);

/// Returns the names of the entries of a folder, sorted; none when it does not exist.
std::vector<std::wstring> FolderEntries(const std::wstring& directory);

}  // namespace altium_registration
