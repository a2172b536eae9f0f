#include "registration/transaction/list_steps.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

#include "common/text/ordinal.h"
#include "registration/transaction/global_projects.h"

namespace altium_registration {
namespace {

ListStep StepFor(const RegistryValue& value, bool removes) {
  ListStep step{value, removes, std::nullopt};
  std::wstring ignored;
  static_cast<void>(ParseItemName(value.name, step.index, ignored));
  return step;
}

using ValuesByName = std::map<std::wstring_view, const RegistryValue*, kestrune::OrdinalLess>;

ValuesByName ByName(const std::vector<RegistryValue>& values) {
  ValuesByName by_name;
  for (const RegistryValue& value : values) {
    by_name.emplace(value.name, &value);
  }
  return by_name;
}

/// Orders steps by list index; values that are not list entries come first. A name may have leading
/// zeros, so names cannot be compared as texts.
bool ComesBefore(const ListStep& left, const ListStep& right) {
  return left.index < right.index;
}

}  // namespace

std::vector<ListStep> StepsBetween(const std::vector<RegistryValue>& from,
                                   const std::vector<RegistryValue>& to, StepOrder order) {
  const ValuesByName old_values = ByName(from);
  const ValuesByName new_values = ByName(to);
  std::vector<ListStep> writes;
  for (const RegistryValue& value : to) {
    const auto old = old_values.find(value.name);
    if (old == old_values.end() || old->second->type != value.type ||
        old->second->data != value.data) {
      writes.push_back(StepFor(value, false));
    }
  }
  std::vector<ListStep> removals;
  for (const RegistryValue& value : from) {
    if (!new_values.contains(value.name)) {
      removals.push_back(StepFor(value, true));
    }
  }
  for (std::vector<ListStep>* steps : {&writes, &removals}) {
    std::ranges::stable_sort(*steps, ComesBefore);
    if (order == StepOrder::Descending) {
      std::ranges::reverse(*steps);
    }
  }
  std::ranges::move(removals, std::back_inserter(writes));
  return writes;
}

std::vector<RegistryValue> ContentAfter(const std::vector<RegistryValue>& before,
                                        const std::vector<ListStep>& steps, std::size_t count) {
  ValuesByName content = ByName(before);
  for (std::size_t i = 0; i < count; ++i) {
    content.erase(steps[i].value.name);
    if (!steps[i].removes) {
      content.emplace(steps[i].value.name, &steps[i].value);
    }
  }
  std::vector<RegistryValue> values;
  for (const auto& [name, value] : content) {
    values.push_back(*value);
  }
  return values;
}

}  // namespace altium_registration
