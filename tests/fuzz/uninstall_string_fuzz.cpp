// Input: an uninstall string. Law: the found GUID is the first match of the pattern, if there is
// one.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/text/text.h"
#include "install/discovery/host_product.h"

namespace {

constexpr std::wstring_view kMark = L"B-UniqueID:\"";
constexpr std::wstring_view kClass = L"0123456789ABCDEFabcdef-";

/// Returns the length of the match of `mark{class+}"` at `at`; 0 when there is none.
std::size_t MatchAt(std::wstring_view text, std::size_t at) {
  if (text.substr(at, kMark.size()) != kMark || text.substr(at + kMark.size(), 1) != L"{") {
    return 0;
  }
  const std::size_t inside = at + kMark.size() + 1;
  const std::size_t end = text.find_first_not_of(kClass, inside);
  return end != std::wstring_view::npos && end > inside && text.substr(end, 2) == L"}\""
             ? end + 2 - at
             : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = kestrune::WideFromUtf8({reinterpret_cast<const char*>(data), size});
  std::wstring expected;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t length = MatchAt(text, at);
    if (length != 0) {
      const std::wstring guid = text.substr(at + kMark.size(), length - kMark.size() - 1);
      expected = kestrune::IsInstanceGuid(guid) ? kestrune::LowerAscii(guid) : L"";
      break;
    }
  }
  const std::wstring found = kestrune::GuidFromUninstallString(text);
  if (found != expected || (!found.empty() && !kestrune::IsInstanceGuid(found))) {
    std::abort();
  }
  // An icon's path is part of its value and, cleaned once, clean.
  const std::wstring icon = kestrune::PathFromDisplayIcon(text);
  if (text.find(icon) == std::wstring::npos || icon.size() > text.size()) {
    std::abort();
  }
  return 0;
}
