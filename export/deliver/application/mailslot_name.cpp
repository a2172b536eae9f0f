#include "export/deliver/application/mailslot_name.h"

#include <algorithm>
#include <cwctype>
#include <limits>

#include "common/text/text.h"

namespace kestrune {

std::uint32_t ListenerProcessId(std::wstring_view name) {
  constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
  if (!name.starts_with(kMailslotPrefix)) {
    return 0;
  }
  name.remove_prefix(kMailslotPrefix.size());
  const std::uint64_t number = TakeDecimal(name, none).value_or(0);
  return name.empty() && number < none ? static_cast<std::uint32_t>(number) : 0;
}

bool IsMailslotName(std::wstring_view name) {
  return name.size() > kMailslotPrefix.size() && name.starts_with(kMailslotPrefix) &&
         std::ranges::all_of(name.substr(kMailslotPrefix.size()), [](wchar_t c) {
           return std::iswdigit(static_cast<std::wint_t>(c)) != 0;
         });
}

}  // namespace kestrune
