#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/registry_value.h"
#include "registration/transaction/store.h"

namespace altium_registration {

/// Holds the planned change of one instance: the state that was read and the state that is wanted.
struct RegistrationChange {
  /// DXP.RCS as read.
  std::string rcs_before;
  /// DXP.RCS as planned; equal to `rcs_before` when only the key is changed.
  std::string rcs_after;
  /// The Global Projects values as read.
  std::vector<RegistryValue> values_before;
  /// The complete planned content of the key, in the plan's order.
  std::vector<RegistryValue> values_after;
  /// Returns whether a text of DXP.RCS is in the wanted state.
  std::function<bool(std::string_view)> validate;
};

/// Makes the change to file and key through the store, the file first. Returns true when both are
/// in the validated new state (or already were). Otherwise rolls back, the key first, and `message`
/// names the failure and says whether the rollback is complete. `message` describes the outcome in
/// any case and is also written to the operation log. All exceptions are handled in this way;
/// std::bad_alloc is thrown only at the beginning, before the first call of the store.
///
/// Before every write it checks that no other program has changed the file, its security or the
/// key; a change that the check finds is never overwritten, not even by the rollback. The registry
/// has no conditional write: a value that another program writes under a name of the plan between
/// the check and the next write is overwritten. With more than 256 values the key is checked only
/// before the first write and after the last one, so this gap lasts for all writes.
[[nodiscard]] bool RunTransaction(Store& store, const RegistrationChange& change,
                                  std::wstring& message);

}  // namespace altium_registration
