#include "install/deploy/package_timestamp.h"

#include <string>

#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::size_t kValueLength = 82;
constexpr std::size_t kColon = 8;
constexpr std::size_t kBar = 17;

bool ParseDigits(std::wstring_view digits, std::uint64_t& number) {
  number = 0;
  for (const wchar_t c : digits) {
    const bool letter = c >= L'A' && c <= L'F';
    if (!letter && !IsAsciiDigit(c)) {
      return false;
    }
    number = number << 4 | static_cast<std::uint64_t>(letter ? c - L'A' + 10 : c - L'0');
  }
  return true;
}

}  // namespace

bool ParseManifestValue(std::wstring_view value, ManifestEntry& entry) {
  if (value.size() != kValueLength || value[kColon] != L':' || value[kBar] != L'|') {
    return false;
  }
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  if (!ParseDigits(value.substr(0, kColon), high) ||
      !ParseDigits(value.substr(kColon + 1, kBar - kColon - 1), low)) {
    return false;
  }
  entry = {high << 32 | low, value.substr(kBar + 1)};
  return entry.time != 0;
}

bool IsManifestName(std::wstring_view name) {
  const std::wstring lower = LowerAscii(name);
  return lower.size() >= 8 && lower.starts_with(L"bfm_") && lower.ends_with(L".ini");
}

bool IsTrustedWithoutManifest(std::wstring_view source_path) {
  return LowerAscii(source_path).find(L"kestrunes") == std::wstring::npos;
}

}  // namespace kestrune
