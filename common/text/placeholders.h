#pragma once

#include <span>
#include <string>
#include <string_view>

namespace kestrune {

/// Holds a placeholder of a template, such as "%DATE%", and its value.
struct Placeholder {
  std::wstring_view name;
  std::wstring_view value;
};

/// Returns `text` with the placeholders replaced, one kind after the other in their order; matching
/// is case-sensitive. A placeholder in an inserted value is not replaced.
std::wstring FillPlaceholders(std::wstring_view text, std::span<const Placeholder> placeholders);

}  // namespace kestrune
