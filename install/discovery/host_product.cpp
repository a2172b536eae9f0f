#include "install/discovery/host_product.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>

#include "common/text/path.h"
#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::wstring_view kEditions[] = {L"altium designer", L"altium designer develop",
                                           L"altium designer agile"};
constexpr std::size_t kGuidLength = 38;

bool IsHexadecimal(wchar_t c) {
  const wchar_t lower = LowerAscii(c);
  return IsAsciiDigit(c) || (lower >= L'a' && lower <= L'f');
}

bool IsVersionTail(std::wstring_view tail) {
  wchar_t previous = L'.';
  for (const wchar_t c : tail) {
    if (!IsAsciiDigit(c) && (c != L'.' || previous == L'.')) {
      return false;
    }
    previous = c;
  }
  return previous != L'.';
}

/// Removes a decimal number with an optional sign from the front of `text`. Returns false, with the
/// number 0, when there is none.
bool TakeNumber(std::wstring_view& text, std::int32_t& number) {
  std::size_t at = 0;
  while (at < text.size() && IsAsciiBlank(text[at])) {
    ++at;
  }
  const bool negative = at < text.size() && text[at] == L'-';
  if (at < text.size() && (text[at] == L'-' || text[at] == L'+')) {
    ++at;
  }
  std::wstring_view rest = text.substr(at);
  // The limit is the largest magnitude of a negative number; the result is clamped below.
  const std::optional<std::uint64_t> magnitude = TakeDecimal(rest, std::uint64_t{1} << 31);
  if (!magnitude) {
    return false;
  }
  const auto value = static_cast<std::int64_t>(*magnitude);
  number = static_cast<std::int32_t>(
      std::clamp<std::int64_t>(negative ? -value : value, std::numeric_limits<std::int32_t>::min(),
                               std::numeric_limits<std::int32_t>::max()));
  text = rest;
  return true;
}

bool TakeDot(std::wstring_view& text) {
  if (!text.starts_with(L'.')) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

/// Returns the names that end in the GUID.
std::vector<std::wstring> NamesOfInstance(const std::vector<std::wstring>& names,
                                          std::wstring_view guid) {
  std::vector<std::wstring> found;
  std::ranges::copy_if(names, std::back_inserter(found), [&](std::wstring_view name) {
    return name.size() >= kGuidLength && LowerAscii(name.substr(name.size() - kGuidLength)) == guid;
  });
  return found;
}

}  // namespace

bool IsHostProductName(std::wstring_view display_name) {
  const std::wstring name = LowerAscii(display_name);
  return std::any_of(std::begin(kEditions), std::end(kEditions), [&](std::wstring_view edition) {
    if (!name.starts_with(edition)) {
      return false;
    }
    const std::wstring_view rest = std::wstring_view(name).substr(edition.size());
    return rest.empty() || (rest.front() == L' ' && IsVersionTail(rest.substr(1)));
  });
}

HostVersion ParseHostVersion(std::wstring_view text) {
  HostVersion version;
  if (TakeNumber(text, version.major) && TakeDot(text) && TakeNumber(text, version.minor) &&
      TakeDot(text)) {
    TakeNumber(text, version.build);
  }
  return version;
}

bool IsInstanceGuid(std::wstring_view text) {
  if (text.size() != kGuidLength || text.front() != L'{' || text.back() != L'}') {
    return false;
  }
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    const bool hyphen_place = i == 9 || i == 14 || i == 19 || i == 24;
    if (hyphen_place ? text[i] != L'-' : !IsHexadecimal(text[i])) {
      return false;
    }
  }
  return true;
}

std::wstring GuidFromUninstallString(std::wstring_view uninstall_string) {
  constexpr std::wstring_view kMark = L"B-UniqueID:\"{";
  for (std::size_t at = uninstall_string.find(kMark); at != std::wstring_view::npos;
       at = uninstall_string.find(kMark, at + 1)) {
    const std::wstring_view rest = uninstall_string.substr(at + kMark.size() - 1);
    std::size_t end = 1;
    while (end < rest.size() && (IsHexadecimal(rest[end]) || rest[end] == L'-')) {
      ++end;
    }
    if (end > 1 && rest.substr(end).starts_with(L"}\"")) {
      const std::wstring_view candidate = rest.substr(0, end + 1);
      return IsInstanceGuid(candidate) ? LowerAscii(candidate) : std::wstring();
    }
  }
  return {};
}

std::wstring PathFromDisplayIcon(std::wstring_view display_icon) {
  if (display_icon.starts_with(L'"')) {
    display_icon.remove_prefix(1);
    return std::wstring(display_icon.substr(0, display_icon.find(L'"')));
  }
  const std::size_t comma = display_icon.rfind(L',');
  if (comma != std::wstring_view::npos) {
    std::wstring_view number = display_icon.substr(comma + 1);
    if (number.starts_with(L'-')) {
      number.remove_prefix(1);
    }
    if (!number.empty() &&
        std::all_of(number.begin(), number.end(), [](wchar_t c) { return IsAsciiDigit(c); })) {
      display_icon = display_icon.substr(0, comma);
    }
  }
  return std::wstring(display_icon);
}

bool NamesHostProgram(std::wstring_view path) {
  const std::wstring name = LowerAscii(FileName(path));
  return name == L"dxp.exe" || name == L"x2.exe";
}

bool MatchInstanceName(std::wstring_view guid, const NameListing& profiles,
                       const NameListing& branches, std::wstring& name, std::wstring& reason) {
  using Outcome = NameListing::Outcome;
  if (profiles.outcome != Outcome::Complete) {
    reason = profiles.outcome == Outcome::CannotRead ? L"Cannot read Altium profiles."
                                                     : L"Cannot enumerate Altium profiles.";
    return false;
  }
  if (branches.outcome != Outcome::Complete) {
    reason = branches.outcome == Outcome::CannotRead ? L"Cannot read HKCU Altium instances."
                                                     : L"Cannot enumerate HKCU Altium instances.";
    return false;
  }
  if (!IsInstanceGuid(guid)) {
    reason = L"Malformed Altium instance GUID.";
    return false;
  }
  const auto own_profiles = NamesOfInstance(profiles.names, guid);
  const auto own_branches = NamesOfInstance(branches.names, guid);
  if (own_profiles.size() != 1 || own_branches.size() != 1) {
    reason = L"Missing or ambiguous profile/registry instance for " + std::wstring(guid);
    return false;
  }
  if (own_profiles != own_branches) {
    reason = L"Profile and HKCU branch disagree for " + std::wstring(guid);
    return false;
  }
  name = own_profiles.front();
  return true;
}

}  // namespace kestrune
