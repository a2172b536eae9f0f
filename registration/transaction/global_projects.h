#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/registry_value.h"

namespace altium_registration {

/// The most data bytes that one value of the list may have; the host's own entries are paths, so
/// anything larger is not a list that we understand (1 MiB).
inline constexpr std::size_t kMaxRegistryValueBytes = 1'048'576;

/// Reads the number out of a value name of the form ItemN ("Item" in any case, then digits,
/// leading zeros allowed).
///
/// `index` is empty for every other name, which is not an error. Returns false with "ItemN index
/// too large." as soon as a digit follows a number above 100000; so 1000009 is still accepted.
bool ParseItemName(std::wstring_view name, std::optional<std::uint32_t>& index,
                   std::wstring& error);

/// Reads the text of an ItemN value: UTF-16 units without the terminating NUL.
///
/// Returns false with "ItemN must be terminated REG_SZ." for another type, an odd or too short
/// length or a missing NUL, and with "Embedded NUL in ItemN." for a NUL inside.
bool ItemText(const RegistryValue& value, std::wstring& text, std::wstring& error);

/// The data bytes of a registry text: UTF-16LE followed by one NUL.
std::vector<std::byte> TextData(std::wstring_view text);

/// Computes the complete content that the list must have: `project_path` exactly once (install) or
/// not at all, every other script project kept, the entries numbered without gaps from Item0 in
/// the order of their old numbers.
///
/// Values that are not ItemN come first, in the order of `values`, untouched; then the entries. An
/// entry equal to `project_path` without regard to case and to the direction of slashes is a match;
/// installing keeps the first match with the text that it has. `plan` is set only on success.
///
/// Errors: "Duplicate registry value name.", "ItemN index too large.", "Ambiguous numeric ItemN.",
/// and those of ItemText in the order of the numbers. Takes n log n comparisons for n values.
bool PlanGlobalProjects(const std::vector<RegistryValue>& values, std::wstring_view project_path,
                        bool install, std::vector<RegistryValue>& plan, std::wstring& error);

/// Whether two lists hold the same values: names without regard to case (the registry keeps the
/// spelling of the first write), types and data exactly, the order left out of account (the
/// registry defines none).
bool SameValues(const std::vector<RegistryValue>& left, const std::vector<RegistryValue>& right);

}  // namespace altium_registration
