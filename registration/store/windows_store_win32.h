#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "registration/store/rcs_file_win32.h"
#include "registration/transaction/store.h"
#include "common/system/system_calls_win32.h"

namespace altium_registration {

/// Describes the instance of a store.
struct StoreTarget {
  /// The instance's DXP.RCS; its folder is the profile directory.
  std::wstring rcs_path;
  /// The instance's branch below HKEY_CURRENT_USER.
  std::wstring registry_branch;
  /// The instance's GUID, in the case in which it was found; it names the instance's folder of
  /// backups.
  std::wstring guid;
};

/// Implements Store for a real profile. The constructor reads the stat of DXP.RCS and changes
/// nothing. The backup directory, "<profile>\KestruneBackups\<GUID>\<UTC stamp>", is created with
/// the first line of the operation log or with the backups; the working files of killed runs are
/// then cleared.
class WindowsStore final : public Store {
 public:
  /// Throws kestrune::Failure when the stat of DXP.RCS fails, or it is read-only, a directory or a
  /// link.
  explicit WindowsStore(StoreTarget target, kestrune::SystemCalls& calls);

  /// Returns the directory of this run's backups and log.
  [[nodiscard]] const std::wstring& BackupDirectory() const { return backup_directory_; }

  [[nodiscard]] std::string ReadRcs() override;
  [[nodiscard]] std::vector<RegistryValue> ReadGlobalProjects() override;
  void CreateBackups(std::string_view rcs, const std::vector<RegistryValue>& values) override;
  void PrepareReplacement(std::string_view new_text) override;
  [[nodiscard]] std::string ReadReplacement() override;
  void CommitReplacement() override;
  [[nodiscard]] bool HasReplacedRcs() const noexcept override;
  void CheckSourceSecurity() override;
  void WriteGlobalProjectsValue(const RegistryValue& value) override;
  void RemoveGlobalProjectsValue(const std::wstring& name) override;
  void RollBackRcs() override;
  void AppendLog(std::string_view line) override;

 private:
  [[nodiscard]] kestrune::ExtendedPath BackupPath(std::wstring_view name) const;
  [[nodiscard]] DWORD EnsureBackupDirectory();
  void BackUpRcs(std::string_view rcs);
  void WriteBackup(std::wstring_view name, std::string_view bytes, std::wstring_view step);

  StoreTarget target_;
  std::wstring key_path_;
  kestrune::SystemCalls& calls_;
  RcsFile file_;
  std::wstring backup_directory_;
  bool has_backup_directory_ = false;
  /// Whether the last line of the log may be incomplete.
  bool has_partial_line_ = false;
};

}  // namespace altium_registration
