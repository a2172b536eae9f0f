#include "common/text/ordinal.h"

#include <algorithm>
#include <cwctype>
#include <locale.h>

namespace kestrune {
namespace {

locale_t UnicodeLocale() {
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
  return locale;
}

wchar_t Upper(wchar_t unit) {
  return static_cast<wchar_t>(towupper_l(static_cast<wint_t>(unit), UnicodeLocale()));
}

}  // namespace

int CompareOrdinalIgnoringCase(std::wstring_view left, std::wstring_view right) {
  const std::size_t shared = std::min(left.size(), right.size());
  for (std::size_t i = 0; i < shared; ++i) {
    const wchar_t a = Upper(left[i]);
    const wchar_t b = Upper(right[i]);
    if (a != b) {
      return a < b ? -1 : 1;
    }
  }
  if (left.size() == right.size()) {
    return 0;
  }
  return left.size() < right.size() ? -1 : 1;
}

}  // namespace kestrune
