#include "common/text/ordinal.h"

#include <windows.h>

namespace kestrune {

int CompareOrdinalIgnoringCase(std::wstring_view left, std::wstring_view right) {
  // Windows rejects the null pointer of an empty view.
  if (left.empty() || right.empty()) {
    return static_cast<int>(!left.empty()) - static_cast<int>(!right.empty());
  }
  return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                              static_cast<int>(right.size()), TRUE) -
         CSTR_EQUAL;
}

}  // namespace kestrune
