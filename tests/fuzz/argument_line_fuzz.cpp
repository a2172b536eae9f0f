// Input: the archive's path, a line feed, the spacing in decimal, a line feed, the template. Laws:
// the placeholders are replaced as by a naive implementation; the line always has both identity
// tokens, and the spacing if there is one, which parses back to the same number; the user's line is
// preserved; adding tokens twice adds nothing.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/text/text.h"
#include "export/deliver/application/argument_line.h"
#include "tests/support/require_law.h"

namespace {

constexpr long kWall = -1;  // at both ends of an inserted value; matches nothing

/// One number per character; those of inserted values are negative, so that nothing matches them.
using Cells = std::vector<long>;

bool MatchesAt(const Cells& cells, std::size_t at, std::wstring_view placeholder) {
  for (std::size_t i = 0; i < placeholder.size(); ++i) {
    if (at + i >= cells.size() || cells[at + i] != static_cast<long>(placeholder[i])) {
      return false;
    }
  }
  return true;
}

Cells ReplaceOne(const Cells& cells, std::wstring_view placeholder, std::wstring_view value) {
  Cells result;
  for (std::size_t at = 0; at < cells.size();) {
    if (!MatchesAt(cells, at, placeholder)) {
      result.push_back(cells[at++]);
      continue;
    }
    result.push_back(kWall);
    for (const wchar_t c : value) {
      result.push_back(kWall - 1 - static_cast<long>(c));
    }
    result.push_back(kWall);
    at += placeholder.size();
  }
  return result;
}

bool IsSeparator(wchar_t c) {
  return c == L'\\' || c == L'/';
}

std::size_t NameEnd(const std::wstring& path, std::size_t at) {
  while (at < path.size() && !IsSeparator(path[at])) {
    ++at;
  }
  return at;
}

/// Returns the size of "C:", "C:\", "\", "\\server\share", or of the same after "\\?\" or "\\.\".
std::size_t NaiveRootSize(const std::wstring& path) {
  const auto with_next_name = [&](std::size_t end) {
    return end < path.size() ? NameEnd(path, end + 1) : end;
  };
  const auto with_separator = [&](std::size_t end) {
    return end < path.size() && IsSeparator(path[end]) ? end + 1 : end;
  };
  if (path.size() < 2 || !IsSeparator(path[0]) || !IsSeparator(path[1])) {
    const bool has_drive = path.size() >= 2 && path[1] == L':' && !IsSeparator(path[0]);
    return with_separator(has_drive ? 2 : 0);
  }
  if (path.size() < 4 || (path[2] != L'?' && path[2] != L'.') || !IsSeparator(path[3])) {
    return with_next_name(NameEnd(path, 2));
  }
  const std::size_t volume_end = NameEnd(path, 4);
  std::wstring volume = path.substr(4, volume_end - 4);
  for (wchar_t& c : volume) {
    c = c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
  }
  return volume == L"UNC" && volume_end < path.size() ? with_next_name(with_next_name(volume_end))
                                                      : with_separator(volume_end);
}

std::wstring NaiveReplacement(const std::wstring& text, const std::wstring& zip) {
  const std::size_t root = NaiveRootSize(zip);
  std::size_t folder_size = zip.size();
  while (folder_size > root && !IsSeparator(zip[folder_size - 1])) {
    --folder_size;
  }
  const std::wstring name = zip.substr(folder_size);
  std::wstring folder = zip.substr(0, folder_size);
  while (folder.size() > root && IsSeparator(folder.back())) {
    folder.pop_back();
  }
  const std::pair<std::wstring_view, std::wstring> placeholders[] = {
      {L"%ODBPP%", zip},
      {L"%ODBPP_ZIP%", zip},
      {L"%ODBPP_DIR%", folder},
      {L"%ODBPP_NAME%", name},
      {L"%BRIDGE_CAD%", L"AltiumDesigner"},
      {L"%BRIDGE_VERSION%", L"0.2.3"}};
  Cells cells(text.begin(), text.end());
  for (const auto& [placeholder, value] : placeholders) {
    cells = ReplaceOne(cells, placeholder, value);
  }
  std::wstring line;
  for (const long cell : cells) {
    if (cell != kWall) {
      line.push_back(static_cast<wchar_t>(cell >= 0 ? cell : kWall - 1 - cell));
    }
  }
  return line;
}

/// Returns the ten-thousandths of a mil in "<digits>[.<digits>]mil".
std::int64_t ReadBack(std::wstring_view mils) {
  Require(mils.ends_with(L"mil"));
  mils.remove_suffix(3);
  std::uint64_t value = 0;
  int decimals = -1;
  for (const wchar_t c : mils) {
    if (c == L'.') {
      Require(decimals == -1);
      decimals = 0;
      continue;
    }
    Require(c >= L'0' && c <= L'9');
    value = value * 10 + static_cast<std::uint64_t>(c - L'0');
    decimals += decimals >= 0 ? 1 : 0;
  }
  Require(decimals != 0 && decimals <= 4 && (decimals == -1 || mils.back() != L'0'));
  for (int i = decimals == -1 ? 0 : decimals; i < 4; ++i) {
    value *= 10;
  }
  return static_cast<std::int64_t>(value);
}

void CheckLine(const std::wstring& text, const std::wstring& zip, std::int64_t space) {
  const std::wstring replaced = kestrune::ReplacePlaceholders(text, zip);
  Require(replaced == NaiveReplacement(text, zip));
  const std::wstring identified = kestrune::WithIdentityTokens(replaced);
  Require(identified.ends_with(replaced));
  Require(kestrune::HasToken(identified, L"-bridge:"));
  Require(kestrune::HasToken(identified, L"-bridge-version:"));
  Require(kestrune::WithIdentityTokens(identified) == identified);
  const std::wstring line = kestrune::BuildArgumentLine(text, zip, space);
  Require(line.starts_with(identified));
  if (line.size() == identified.size()) {
    Require(space <= 0 || kestrune::HasToken(identified, L"-space:"));
  } else {
    constexpr std::wstring_view token = L" -space:";
    const std::wstring_view added = std::wstring_view(line).substr(identified.size());
    Require(space > 0 && added.starts_with(token));
    Require(ReadBack(added.substr(token.size())) == space);
  }
  Require(kestrune::WithSpaceToken(line, space) == line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t first = input.find('\n');
  const std::size_t second = first == std::string::npos ? first : input.find('\n', first + 1);
  if (second == std::string::npos) {
    return 0;
  }
  CheckLine(kestrune::WidenBytes(input.substr(second + 1)),
            kestrune::WidenBytes(input.substr(0, first)),
            std::strtoll(input.c_str() + first + 1, nullptr, 10));
  return 0;
}
