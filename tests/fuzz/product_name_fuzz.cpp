// Input: a display name. Law: accepted are an edition, and an edition with one blank and a version.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/text/text.h"
#include "install/button.h"
#include "install/discovery/host_product.h"
#include "tests/support/require_law.h"

namespace {

bool IsVersion(std::wstring_view text) {
  return !text.empty() && text.find_first_not_of(L"0123456789.") == std::wstring_view::npos &&
         text.front() != L'.' && text.back() != L'.' && text.find(L"..") == std::wstring_view::npos;
}

bool Qualifies(const std::wstring& name) {
  for (const std::wstring_view edition :
       {L"altium designer", L"altium designer develop", L"altium designer agile"}) {
    const std::wstring lower = kestrune::LowerAscii(name);
    const std::wstring start = std::wstring(edition) + L" ";
    if (lower == edition ||
        (lower.starts_with(start) && IsVersion(std::wstring_view(lower).substr(start.size())))) {
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const std::string_view start : {"", "Altium Designer", "ALTIUM designer Develop "}) {
    const std::wstring name = kestrune::WideFromUtf8(std::string(start) + std::string(bytes));
    const bool is_host = kestrune::IsHostProductName(name);
    Require(is_host == Qualifies(name));
    const std::wstring image = kestrune::ChooseToolbarImage(L"26.9.1.9", true, name);
    if (image == L"odbpp-toolbar-ad26-16.png" && !is_host) {
      std::abort();
    }
  }
  return 0;
}
