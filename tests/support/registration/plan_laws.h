#pragma once

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/text/ordinal.h"
#include "registration/transaction/global_projects.h"

/// Checks laws of plans that hold for any list. The unit tests check their examples with them, the
/// fuzzer random lists.
namespace altium_registration {

using Values = std::vector<RegistryValue>;

/// Returns whether the lists are equal in order, spelling of names, types and data.
inline bool Identical(const Values& left, const Values& right) {
  return std::ranges::equal(left, right, [](const RegistryValue& a, const RegistryValue& b) {
    return a.name == b.name && a.type == b.type && a.data == b.data;
  });
}

/// Returns the plan; empty when the list is refused.
inline Values PlanOf(const Values& values, std::wstring_view project, bool install) {
  Values plan;
  std::wstring error;
  PlanGlobalProjects(values, project, install, plan, error);
  return plan;
}

/// Returns the text of a list entry; nothing for data that is not one terminated text.
inline std::optional<std::wstring> EntryText(const RegistryValue& value) {
  std::wstring text;
  for (std::size_t i = 0; i + 3 < value.data.size(); i += 2) {
    text.push_back(static_cast<wchar_t>(std::to_integer<unsigned>(value.data[i]) |
                                        std::to_integer<unsigned>(value.data[i + 1]) << 8));
  }
  const bool is_text = value.type == kRegistryText && TextData(text) == value.data &&
                       text.find(L'\0') == std::wstring::npos;
  return is_text ? std::optional(text) : std::nullopt;
}

/// Returns the number of entries for the project in a list, ignoring case and the direction of
/// slashes.
inline std::size_t ProjectEntries(const std::vector<RegistryValue>& values, std::wstring project) {
  std::ranges::replace(project, L'/', L'\\');
  return static_cast<std::size_t>(
      std::ranges::count_if(values, [&project](const RegistryValue& value) {
        std::optional<std::uint32_t> index;
        std::wstring error;
        std::optional<std::wstring> text = EntryText(value);
        if (!ParseItemName(value.name, index, error) || !index || !text) {
          return false;
        }
        std::ranges::replace(*text, L'/', L'\\');
        return kestrune::EqualIgnoringCase(*text, project);
      }));
}

/// Applies a plan as a registry key does, which keeps the first spelling of names and has its own
/// order.
inline Values Applied(Values key, const Values& plan) {
  const auto find = [](auto& values, const std::wstring& name) {
    return std::ranges::find_if(values, [&](const RegistryValue& value) {
      return kestrune::EqualIgnoringCase(value.name, name);
    });
  };
  for (const RegistryValue& value : plan) {
    const auto present = find(key, value.name);
    if (present == key.end()) {
      key.insert(key.begin(), value);
    } else {
      present->type = value.type;
      present->data = value.data;
    }
  }
  std::erase_if(key,
                [&](const RegistryValue& value) { return find(plan, value.name) == plan.end(); });
  return key;
}

/// Returns the values that are not entries, in their order.
inline Values OtherValues(const Values& values) {
  Values found;
  std::ranges::copy_if(values, std::back_inserter(found), [](const RegistryValue& value) {
    std::optional<std::uint32_t> index;
    std::wstring error;
    return ParseItemName(value.name, index, error) && !index;
  });
  return found;
}

/// Returns whether the values after the first `others` are Item0, Item1 and so on.
inline bool HasNoGaps(const Values& plan, std::size_t others) {
  for (std::size_t i = others; i < plan.size(); ++i) {
    if (plan[i].name != L"Item" + std::to_wstring(i - others)) {
      return false;
    }
  }
  return true;
}

/// Returns the law that the plan of a list breaks; empty when it breaks none or when the list is
/// refused.
inline std::string BrokenPlanLaw(const Values& values, std::wstring_view project, bool install) {
  Values plan;
  std::wstring error;
  if (!PlanGlobalProjects(values, project, install, plan, error)) {
    return error.empty() || !plan.empty() ? "a refusal has a text and no plan" : "";
  }
  if (ProjectEntries(plan, std::wstring(project)) != (install ? 1U : 0U)) {
    return "the project is listed once or never";
  }
  const Values others = OtherValues(values);
  if (!Identical(OtherValues(plan), others) || !HasNoGaps(plan, others.size())) {
    return "other values come first and entries have no gaps";
  }
  if (!Identical(PlanOf(plan, project, false), PlanOf(values, project, false))) {
    return "the foreign entries stay";
  }
  if (!Identical(PlanOf(plan, project, install), plan)) {
    return "a plan is a fixed point";
  }
  const Values reversed(values.rbegin(), values.rend());
  const Values key = Applied(reversed, plan);
  if (!SameValues(values, reversed) || !SameValues(PlanOf(reversed, project, install), plan) ||
      !SameValues(key, plan) || !SameValues(PlanOf(key, project, install), key)) {
    return "the order in the key makes no difference";
  }
  return "";
}

}  // namespace altium_registration
