#include "install/extra_record_kinds.h"

#include <algorithm>

#include "common/text/text.h"
#include "registration/rcs/rcs.h"

namespace kestrune {
namespace {

bool IsKeywordCharacter(wchar_t c) {
  return c > L' ' && c < L'\x7F' && c != L'\'' && c != L'"' && c != L'=';
}

/// Returns the name as bytes; empty when it cannot be a keyword in a customization file.
std::string KeywordBytes(std::wstring_view name) {
  std::string bytes;
  for (const wchar_t c : name) {
    if (!IsKeywordCharacter(c)) {
      return {};
    }
    bytes.push_back(static_cast<char>(c));
  }
  return bytes;
}

}  // namespace

std::vector<std::string> ExtraRecordKinds(std::wstring_view extra_records) {
  std::vector<std::string> kinds;
  for (std::size_t at = 0; at <= extra_records.size();) {
    const std::size_t comma = std::min(extra_records.find(L',', at), extra_records.size());
    std::string kind = KeywordBytes(Trim(extra_records.substr(at, comma - at), L" \t"));
    if (!kind.empty() && !altium_registration::IsRcsKeyword(kind) &&
        std::ranges::find(kinds, kind) == kinds.end()) {
      kinds.push_back(std::move(kind));
    }
    at = comma + 1;
  }
  return kinds;
}

}  // namespace kestrune
