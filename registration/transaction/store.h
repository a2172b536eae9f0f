#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/registry_value.h"

namespace altium_registration {

/// Provides access to all that the registration of one instance reads and changes: the
/// customization file DXP.RCS, the instance's Global Projects key, and the backups of both.
///
/// An operation that fails throws kestrune::Failure with a complete text, which has the step's name
/// and code if a call failed. A failed operation may have taken effect: for the file HasReplacedRcs
/// reports it, for the key reading it again.
class Store {
 public:
  Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  /// Deletes the working files beside DXP.RCS, but not backups and log.
  virtual ~Store() = default;

  /// Returns the bytes of DXP.RCS; at most 8,388,608.
  [[nodiscard]] virtual std::string ReadRcs() = 0;

  /// Returns the key's values in enumeration order; an absent key has none.
  [[nodiscard]] virtual std::vector<RegistryValue> ReadGlobalProjects() = 0;

  /// Saves file, values and security, and verifies that the saved file equals `rcs`, on which the
  /// plan is based.
  virtual void CreateBackups(std::string_view rcs, const std::vector<RegistryValue>& values) = 0;

  /// Writes the new text to the replacement file beside DXP.RCS, with the owner and group of
  /// DXP.RCS.
  virtual void PrepareReplacement(std::string_view new_text) = 0;

  /// Returns the bytes of the replacement file, read by the rules of ReadRcs.
  [[nodiscard]] virtual std::string ReadReplacement() = 0;

  /// Replaces DXP.RCS with the replacement file and restores the exact security. Requires
  /// CreateBackups and PrepareReplacement.
  virtual void CommitReplacement() = 0;

  /// Returns whether this store has replaced DXP.RCS; true also after a commit that replaced the
  /// file and then failed, which the rollback must undo. Another program's change does not count.
  [[nodiscard]] virtual bool HasReplacedRcs() const noexcept = 0;

  /// Throws when the security of DXP.RCS has changed since the store was opened.
  virtual void CheckSourceSecurity() = 0;

  /// Sets one value; creates the key if it is absent.
  virtual void WriteGlobalProjectsValue(const RegistryValue& value) = 0;

  /// Removes one value by name.
  virtual void RemoveGlobalProjectsValue(const std::wstring& name) = 0;

  /// Restores the saved DXP.RCS, unless another program has changed the file since the commit.
  virtual void RollBackRcs() = 0;

  /// Appends a line (given without line end) to the operation log and flushes it. The first line
  /// creates the log's directory.
  virtual void AppendLog(std::string_view line) = 0;
};

}  // namespace altium_registration
