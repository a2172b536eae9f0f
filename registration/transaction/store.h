#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/registry_value.h"

namespace altium_registration {

/// The one door to what a registration of one host instance reads and changes: the customization
/// file DXP.RCS, the instance's Global Projects key, and the backups of both.
///
/// An operation that fails throws kestrune::Failure; its text is complete, with the step's name and
/// code where a call failed. What an operation did before it failed is asked, not assumed: the file
/// through HasReplacedRcs, the key by reading it again.
class Store {
 public:
  Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  /// Takes away every working file beside DXP.RCS; backups and log stay.
  virtual ~Store() = default;

  /// The bytes of DXP.RCS; at most 8,388,608.
  [[nodiscard]] virtual std::string ReadRcs() = 0;

  /// The key's values in enumeration order; an absent key has none.
  [[nodiscard]] virtual std::vector<RegistryValue> ReadGlobalProjects() = 0;

  /// Saves file, values and security, and verifies that the saved file holds `rcs`, the bytes that
  /// everything was planned on.
  virtual void CreateBackups(std::string_view rcs, const std::vector<RegistryValue>& values) = 0;

  /// Writes the new text to a temporary file beside DXP.RCS, with the owner and group of DXP.RCS.
  virtual void PrepareReplacement(std::string_view new_text) = 0;

  /// The bytes of the temporary file, read by the rules of ReadRcs.
  [[nodiscard]] virtual std::string ReadReplacement() = 0;

  /// Puts the temporary file in the place of DXP.RCS and restores the exact security. Only after
  /// CreateBackups and PrepareReplacement.
  virtual void CommitReplacement() = 0;

  /// Whether DXP.RCS counts as replaced by this store. True also after a commit that replaced the
  /// file and then failed, so that the rollback knows to put it back; never for another program's
  /// change. Never fails.
  [[nodiscard]] virtual bool HasReplacedRcs() const noexcept = 0;

  /// Throws when the security of DXP.RCS is not what it was when the store was opened.
  virtual void CheckSourceSecurity() = 0;

  /// Sets one value; creates the key where it is absent.
  virtual void WriteGlobalProjectsValue(const RegistryValue& value) = 0;

  /// Removes one value by name.
  virtual void RemoveGlobalProjectsValue(const std::wstring& name) = 0;

  /// Puts the saved DXP.RCS back, unless somebody else changed the file since the commit.
  virtual void RollBackRcs() = 0;

  /// Appends a line (without its end) to the operation log and flushes it. The first line brings
  /// the log's directory into being.
  virtual void AppendLog(std::string_view line) = 0;

  /// Restores the exact security of DXP.RCS. Part of committing and of rolling back.
  virtual void RestoreRcsSecurity() = 0;
};

}  // namespace altium_registration
