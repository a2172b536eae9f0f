#include "export/user_settings.h"

#include <algorithm>
#include <array>

#include "common/text.h"

namespace kestrune {
namespace {

constexpr std::array<std::string_view, 7> kReservedKeywords = {
    "Tree", "PL", "Link", "Insertion", "Deletion", "Separator", "End"};

bool CanStandInKeyword(wchar_t c) {
  return c > L' ' && c < L'\x7F' && c != L'\'' && c != L'"' && c != L'=';
}

/// The name as bytes; empty when no customization file could hold it as a keyword.
std::string KeywordBytes(std::wstring_view name) {
  std::string bytes;
  for (const wchar_t c : name) {
    if (!CanStandInKeyword(c)) {
      return {};
    }
    bytes.push_back(static_cast<char>(c));
  }
  return bytes;
}

}  // namespace

std::wstring ExportCommandLabel(const UserSettings& settings, const IsFile& is_file) {
  std::wstring label = L"Export PCB through Kestrune";
  if (settings.enabled && !settings.executable_path.empty() && !settings.program_name.empty() &&
      is_file(settings.executable_path)) {
    label += L" -> " + settings.program_name;
  }
  return label;
}

std::vector<std::string> ExtraRecordKinds(std::wstring_view extra_records) {
  std::vector<std::string> kinds;
  for (std::size_t at = 0; at <= extra_records.size();) {
    const std::size_t comma = std::min(extra_records.find(L',', at), extra_records.size());
    std::string kind = KeywordBytes(Trim(extra_records.substr(at, comma - at), L" \t"));
    if (!kind.empty() && std::ranges::find(kReservedKeywords, kind) == kReservedKeywords.end() &&
        std::ranges::find(kinds, kind) == kinds.end()) {
      kinds.push_back(std::move(kind));
    }
    at = comma + 1;
  }
  return kinds;
}

}  // namespace kestrune
