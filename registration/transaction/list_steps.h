#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "registration/transaction/registry_value.h"

namespace altium_registration {

/// Holds one write or removal in the Global Projects key.
struct ListStep {
  RegistryValue value;
  bool removes = false;
  /// The number of a list entry; none for any other value.
  std::optional<std::uint32_t> index;
};

enum class StepOrder { Ascending, Descending };

/// Returns the steps that change `from` to `to`: first writes of the values that differ, then
/// removals of the names that `to` lacks, each ordered by the number of the entry; values that are
/// not entries have the lowest number.
///
/// A plan never gives an entry a higher number than it had. Writing in ascending order before
/// removing (and in descending order when undoing) therefore keeps every entry in the list at every
/// instant, even if the process is killed.
std::vector<ListStep> StepsBetween(const std::vector<RegistryValue>& from,
                                   const std::vector<RegistryValue>& to, StepOrder order);

/// Returns the key's content after the first `count` steps.
std::vector<RegistryValue> ContentAfter(const std::vector<RegistryValue>& before,
                                        const std::vector<ListStep>& steps, std::size_t count);

}  // namespace altium_registration
