#include "common/ordinal.h"

#include <windows.h>

namespace kestrune {

int CompareOrdinalIgnoringCase(std::wstring_view left, std::wstring_view right) {
  return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                              static_cast<int>(right.size()), TRUE) -
         CSTR_EQUAL;
}

}  // namespace kestrune
