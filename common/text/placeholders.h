#pragma once

#include <span>
#include <string>
#include <string_view>

namespace kestrune {

/// A placeholder of a template, such as "%DATE%", and what is put in its place.
struct Placeholder {
  std::wstring_view name;
  std::wstring_view value;
};

/// `text` with the placeholders replaced one kind after the other in their order, with case, and
/// only in what the user wrote: a value that happens to hold a placeholder stays as it is.
std::wstring FillPlaceholders(std::wstring_view text, std::span<const Placeholder> placeholders);

}  // namespace kestrune
