#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "registration/transaction/registry_value.h"

namespace altium_registration {

/// One write or removal in the Global Projects key.
struct ListStep {
  RegistryValue value;
  bool removes = false;
  /// The number of a list entry; none for any other value.
  std::optional<std::uint32_t> index;
};

enum class StepOrder { Ascending, Descending };

/// What turns `from` into `to`: first the values that differ, then the names that `to` lacks, each
/// by the number of the entry; values that are no entries count as the lowest.
///
/// A plan never gives an entry a higher number than it had. So writing upwards before removing (and
/// downwards when undoing) leaves every entry of the list in it at every instant, wherever the
/// process may end.
std::vector<ListStep> StepsBetween(const std::vector<RegistryValue>& from,
                                   const std::vector<RegistryValue>& to, StepOrder order);

/// The key's content after the first `count` steps.
std::vector<RegistryValue> ContentAfter(const std::vector<RegistryValue>& before,
                                        const std::vector<ListStep>& steps, std::size_t count);

}  // namespace altium_registration
