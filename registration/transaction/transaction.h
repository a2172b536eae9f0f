#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/registry_value.h"
#include "registration/transaction/store.h"

namespace altium_registration {

/// What is to be carried out for one host instance: the state that was read and planned on, and
/// the state that is wanted.
struct RegistrationChange {
  /// DXP.RCS as read.
  std::string rcs_before;
  /// DXP.RCS as planned; equal to `rcs_before` when only the key is to change.
  std::string rcs_after;
  /// The Global Projects values as read.
  std::vector<RegistryValue> values_before;
  /// The complete content that the key is to have, in the plan's order.
  std::vector<RegistryValue> values_after;
  /// Whether a text of DXP.RCS is in the wanted state.
  std::function<bool(std::string_view)> validate;
};

/// Carries the change to file and key through the store, the file first. True when both are in the
/// validated new state (or were already); otherwise what was changed has been put back, the key
/// first, and `message` names the failure and whether the recovery is complete. `message` is the
/// outcome in any case, and the operation log receives the same text. Whatever is thrown meanwhile
/// is rolled back and reported so; std::bad_alloc comes out only of the very beginning, before the
/// store is asked for anything.
///
/// Every write is preceded by a check that nobody else changed the file, its security or the key;
/// a change that the check finds is never overwritten, not even when rolling back. The registry
/// has no write that happens only if a value is still the expected one: an entry that another
/// program writes under a name of the plan between the check and the very next write is
/// overwritten. With more than 256 values the key is checked only before the first write and after
/// the last one, and this gap is as long as all the writes together.
[[nodiscard]] bool RunTransaction(Store& store, const RegistrationChange& change,
                                  std::wstring& message);

}  // namespace altium_registration
