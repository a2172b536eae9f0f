#include "registration/transaction/global_projects.h"

#include <algorithm>
#include <map>

#include "common/failure/failure.h"
#include "common/text/ordinal.h"
#include "common/text/text.h"

namespace altium_registration {
namespace {

using kestrune::Failure;

constexpr std::wstring_view kItemPrefix = L"Item";
constexpr std::uint64_t kLargestIndex = 1000009;

bool HasItemForm(std::wstring_view name) {
  return name.size() > kItemPrefix.size() &&
         std::equal(kItemPrefix.begin(), kItemPrefix.end(), name.begin(),
                    [](wchar_t a, wchar_t b) {
                      return kestrune::LowerAscii(a) == kestrune::LowerAscii(b);
                    }) &&
         std::all_of(name.begin() + kItemPrefix.size(), name.end(),
                     [](wchar_t unit) { return kestrune::IsAsciiDigit(unit); });
}

std::optional<std::uint32_t> ItemIndex(std::wstring_view name) {
  if (!HasItemForm(name)) {
    return std::nullopt;
  }
  name.remove_prefix(kItemPrefix.size());
  const std::uint64_t index = kestrune::TakeDecimal(name, kLargestIndex + 1).value_or(0);
  if (index > kLargestIndex) {
    throw Failure{L"ItemN index too large."};
  }
  return static_cast<std::uint32_t>(index);
}

wchar_t UnitAt(const std::vector<std::byte>& data, std::size_t offset) {
  return static_cast<wchar_t>(std::to_integer<unsigned>(data[offset]) |
                              std::to_integer<unsigned>(data[offset + 1]) << 8);
}

/// Returns the text of an ItemN value without the terminating null. Throws Failure.
std::wstring TextOf(const RegistryValue& value) {
  const std::vector<std::byte>& data = value.data;
  if (value.type != kRegistryText || data.size() < 2 || data.size() % 2 != 0 ||
      UnitAt(data, data.size() - 2) != 0) {
    throw Failure{L"ItemN must be terminated REG_SZ."};
  }
  std::wstring text(data.size() / 2 - 1, L'\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = UnitAt(data, i * 2);
  }
  if (text.find(L'\0') != std::wstring::npos) {
    throw Failure{L"Embedded NUL in ItemN."};
  }
  return text;
}

std::wstring WithBackslashes(std::wstring_view path) {
  std::wstring result(path);
  std::replace(result.begin(), result.end(), L'/', L'\\');
  return result;
}

bool NameBefore(const RegistryValue& left, const RegistryValue& right) {
  return kestrune::CompareOrdinalIgnoringCase(left.name, right.name) < 0;
}

using ValuePointers = std::vector<const RegistryValue*>;

ValuePointers SortedByName(const std::vector<RegistryValue>& values) {
  ValuePointers sorted(values.size());
  std::transform(values.begin(), values.end(), sorted.begin(),
                 [](const RegistryValue& value) { return &value; });
  std::sort(sorted.begin(), sorted.end(),
            [](const RegistryValue* left, const RegistryValue* right) {
              return NameBefore(*left, *right);
            });
  return sorted;
}

void RefuseDuplicateNames(const std::vector<RegistryValue>& values) {
  const ValuePointers sorted = SortedByName(values);
  const auto same_name = [](const RegistryValue* left, const RegistryValue* right) {
    return kestrune::EqualIgnoringCase(left->name, right->name);
  };
  if (std::adjacent_find(sorted.begin(), sorted.end(), same_name) != sorted.end()) {
    throw Failure{L"Duplicate registry value name."};
  }
}

/// Returns the entries by number; appends every other value to `plan` unchanged.
std::map<std::uint32_t, const RegistryValue*> SplitOffItems(
    const std::vector<RegistryValue>& values, std::vector<RegistryValue>& plan) {
  std::map<std::uint32_t, const RegistryValue*> items;
  for (const RegistryValue& value : values) {
    const std::optional<std::uint32_t> index = ItemIndex(value.name);
    if (!index) {
      plan.push_back(value);
    } else if (!items.emplace(*index, &value).second) {
      throw Failure{L"Ambiguous numeric ItemN."};
    }
  }
  return items;
}

std::vector<RegistryValue> Plan(const std::vector<RegistryValue>& values,
                                std::wstring_view project_path, bool install) {
  RefuseDuplicateNames(values);
  std::vector<RegistryValue> plan;
  plan.reserve(values.size() + 1);
  const auto items = SplitOffItems(values, plan);

  std::size_t counter = 0;
  const auto append = [&](std::wstring_view text) {
    plan.push_back(
        {std::wstring(kItemPrefix) + std::to_wstring(counter++), kRegistryText, TextData(text)});
  };
  const std::wstring project = WithBackslashes(project_path);
  bool listed = false;
  for (const auto& [index, value] : items) {
    const std::wstring text = TextOf(*value);
    if (kestrune::EqualIgnoringCase(WithBackslashes(text), project)) {
      if (!install || listed) {
        continue;
      }
      listed = true;
    }
    append(text);
  }
  if (install && !listed) {
    append(project_path);
  }
  return plan;
}

}  // namespace

bool ParseItemName(std::wstring_view name, std::optional<std::uint32_t>& index,
                   std::wstring& error) {
  try {
    index = ItemIndex(name);
    return true;
  } catch (const Failure& failure) {
    error = failure.text;
    return false;
  }
}

std::vector<std::byte> TextData(std::wstring_view text) {
  std::vector<std::byte> data;
  data.reserve((text.size() + 1) * 2);
  for (const wchar_t unit : text) {
    const auto code = static_cast<unsigned>(unit & 0xFFFF);
    data.push_back(static_cast<std::byte>(code & 0xFF));
    data.push_back(static_cast<std::byte>(code >> 8));
  }
  data.resize(data.size() + 2, std::byte{0});
  return data;
}

bool PlanGlobalProjects(const std::vector<RegistryValue>& values, std::wstring_view project_path,
                        bool install, std::vector<RegistryValue>& plan, std::wstring& error) {
  try {
    plan = Plan(values, project_path, install);
    return true;
  } catch (const Failure& failure) {
    error = failure.text;
    return false;
  }
}

bool SameValues(const std::vector<RegistryValue>& left, const std::vector<RegistryValue>& right) {
  if (left.size() != right.size()) {
    return false;
  }
  const ValuePointers sorted_left = SortedByName(left);
  const ValuePointers sorted_right = SortedByName(right);
  return std::equal(sorted_left.begin(), sorted_left.end(), sorted_right.begin(),
                    [](const RegistryValue* a, const RegistryValue* b) {
                      return a->type == b->type && a->data == b->data &&
                             kestrune::EqualIgnoringCase(a->name, b->name);
                    });
}

}  // namespace altium_registration
