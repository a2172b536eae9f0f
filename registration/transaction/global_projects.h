#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/registry_value.h"

namespace altium_registration {

/// The limit for the data of one value of the list (1 MiB). The host's own entries are paths, so a
/// larger value is not a list of known form.
inline constexpr std::size_t kMaxRegistryValueBytes = 1'048'576;

/// Parses the number in a value name of the form ItemN ("Item" in any case, then digits, with
/// leading zeros allowed).
///
/// `index` is empty for every other name, which is not an error. Returns false with "ItemN index
/// too large." for a number above 1000009: a digit after a number above 100000 is refused.
bool ParseItemName(std::wstring_view name, std::optional<std::uint32_t>& index,
                   std::wstring& error);

/// Returns the data bytes of a registry text: UTF-16LE with a terminating null.
std::vector<std::byte> TextData(std::wstring_view text);

/// Computes the complete planned content of the list: `project_path` exactly once (install) or not
/// at all, every other script project, and the entries numbered without gaps from Item0 in the
/// order of their old numbers.
///
/// Values that are not ItemN come first, unchanged and in the order of `values`; then the entries.
/// An entry matches if it equals `project_path`, ignoring case and the direction of slashes;
/// installing keeps the first match with its text. `plan` is set only on success.
///
/// Errors: "Duplicate registry value name.", "ItemN index too large.", "Ambiguous numeric ItemN.",
/// and for the entries in the order of their numbers "ItemN must be terminated REG_SZ." (another
/// type, an odd or too short length, or no terminating null) and "Embedded NUL in ItemN.". Takes n
/// log n comparisons for n values.
bool PlanGlobalProjects(const std::vector<RegistryValue>& values, std::wstring_view project_path,
                        bool install, std::vector<RegistryValue>& plan, std::wstring& error);

/// Returns whether two lists have the same values: equal names ignoring case (the registry keeps
/// the spelling of the first write), and equal types and data. Ignores the order, which the
/// registry does not define.
bool SameValues(const std::vector<RegistryValue>& left, const std::vector<RegistryValue>& right);

}  // namespace altium_registration
