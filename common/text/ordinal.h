#pragma once

#include <string_view>

namespace kestrune {

/// Compares two UTF-16 texts unit by unit, ignoring case as Windows does for the names of files and
/// registry keys (not linguistically). Returns a value below, equal to or above 0.
///
/// The product calls Windows (ordinal_win32.cpp); native test builds link a stand-in.
int CompareOrdinalIgnoringCase(std::wstring_view left, std::wstring_view right);

/// Returns whether Windows considers the two texts the same name or path.
inline bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right) {
  return left.size() == right.size() && CompareOrdinalIgnoringCase(left, right) == 0;
}

/// Orders names and paths by the same comparison, for sets and maps.
struct OrdinalLess {
  bool operator()(std::wstring_view left, std::wstring_view right) const {
    return CompareOrdinalIgnoringCase(left, right) < 0;
  }
};

}  // namespace kestrune
