#pragma once

#include <string_view>

namespace kestrune {

/// Compares two UTF-16 texts unit by unit, ignoring case as Windows does for file names and
/// registry names (not linguistically). Returns a value below, equal to or above 0.
///
/// Windows answers it itself (ordinal_win32.cpp); native test builds link a stand-in, so the core
/// needs no Windows header to ask.
int CompareOrdinalIgnoringCase(std::wstring_view left, std::wstring_view right);

/// Whether the two texts are the same name or path to Windows.
inline bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right) {
  return left.size() == right.size() && CompareOrdinalIgnoringCase(left, right) == 0;
}

/// The same comparison as an order for sets and maps of names and paths.
struct OrdinalLess {
  bool operator()(std::wstring_view left, std::wstring_view right) const {
    return CompareOrdinalIgnoringCase(left, right) < 0;
  }
};

}  // namespace kestrune
