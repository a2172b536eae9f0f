#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/text/ordinal.h"
#include "registration/transaction/global_projects.h"

namespace altium_registration {

/// Returns the number of entries for the project in a list, ignoring case and the direction of
/// slashes.
inline std::size_t ProjectEntries(const std::vector<RegistryValue>& values,
                                  std::wstring_view project) {
  return static_cast<std::size_t>(
      std::ranges::count_if(values, [project](const RegistryValue& value) {
        std::optional<std::uint32_t> index;
        std::wstring text;
        std::wstring error;
        if (!ParseItemName(value.name, index, error) || !index || !ItemText(value, text, error)) {
          return false;
        }
        std::ranges::replace(text, L'/', L'\\');
        return kestrune::EqualIgnoringCase(text, project);
      }));
}

}  // namespace altium_registration
