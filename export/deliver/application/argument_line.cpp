#include "export/deliver/application/argument_line.h"

#include "common/text/path.h"
#include "common/text/text.h"
#include "common/text/placeholders.h"

namespace kestrune {
namespace {

constexpr std::wstring_view kHostToken = L"-bridge:";
constexpr std::wstring_view kVersionToken = L"-bridge-version:";
constexpr std::wstring_view kSpaceToken = L"-space:";
constexpr std::wstring_view kHostName = L"AltiumDesigner";
constexpr std::wstring_view kBridgeVersion = L"0.2.3";
constexpr std::uint64_t kUnitsPerMil = 10000;

std::wstring InQuotes(std::wstring_view text) {
  return L"\"" + std::wstring(text) + L"\"";
}

/// Returns the value in mil with as many decimals as it needs, at most four.
std::wstring Mils(std::uint64_t units) {
  std::wstring text = Decimal(units / kUnitsPerMil);
  const std::uint64_t rest = units % kUnitsPerMil;
  if (rest != 0) {
    std::wstring decimals = Decimal(kUnitsPerMil + rest);
    decimals.front() = L'.';
    decimals.erase(decimals.find_last_not_of(L'0') + 1);
    text += decimals;
  }
  return text;
}

}  // namespace

std::wstring ReplacePlaceholders(std::wstring_view text, std::wstring_view zip_path) {
  const Placeholder placeholders[] = {
      {L"%ODBPP%", zip_path},
      {L"%ODBPP_ZIP%", zip_path},
      {L"%ODBPP_DIR%", ParentPath(zip_path)},
      {L"%ODBPP_NAME%", FileName(zip_path)},
      {L"%BRIDGE_CAD%", kHostName},
      {L"%BRIDGE_VERSION%", kBridgeVersion},
  };
  return FillPlaceholders(text, placeholders);
}

bool HasToken(std::wstring_view line, std::wstring_view token) {
  const std::wstring lowered = LowerAscii(line);
  for (std::size_t at = lowered.find(token); at != std::wstring::npos;
       at = lowered.find(token, at + 1)) {
    if (at == 0 || IsAsciiBlank(lowered[at - 1])) {
      return true;
    }
  }
  return false;
}

std::wstring WithIdentityTokens(const std::wstring& line) {
  std::wstring added;
  if (!HasToken(line, kHostToken)) {
    added.append(kHostToken).append(InQuotes(kHostName));
  }
  if (!HasToken(line, kVersionToken)) {
    added.append(added.empty() ? L"" : L" ").append(kVersionToken).append(InQuotes(kBridgeVersion));
  }
  return added.empty() || line.empty() ? added + line : added + L" " + line;
}

std::wstring WithSpaceToken(const std::wstring& line, std::optional<std::int64_t> space) {
  if (!space || *space <= 0 || HasToken(line, kSpaceToken)) {
    return line;
  }
  std::wstring result = line.empty() ? line : line + L" ";
  return result.append(kSpaceToken).append(Mils(static_cast<std::uint64_t>(*space))) + L"mil";
}

std::wstring BuildArgumentLine(std::wstring_view text, std::wstring_view zip_path,
                               std::optional<std::int64_t> space) {
  return WithSpaceToken(WithIdentityTokens(ReplacePlaceholders(text, zip_path)), space);
}

std::wstring QuoteCommandLineArgument(std::wstring_view argument) {
  if (argument.find_first_of(L" \t\"") == std::wstring_view::npos) {
    return std::wstring(argument);
  }
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'"') {
      quoted.append(backslashes + 1, L'\\');
    }
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    quoted.push_back(c);
  }
  return quoted.append(backslashes, L'\\') + L"\"";
}

}  // namespace kestrune
