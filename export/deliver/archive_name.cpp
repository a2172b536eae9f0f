#include "export/deliver/archive_name.h"

#include <algorithm>

#include "common/text/text.h"
#include "common/text/placeholders.h"

namespace kestrune {
namespace {

constexpr std::wstring_view kEnding = L".zip";
constexpr std::size_t kLongestName = 255;

bool IsForbidden(wchar_t c) {
  return c < L' ' || std::wstring_view(L"<>:\"/\\|?*").find(c) != std::wstring_view::npos;
}

/// Returns whether the name is that of a device, with any extensions.
bool NamesDevice(std::wstring_view name) {
  const std::wstring stem = LowerAscii(Trim(name.substr(0, name.find(L'.')), L" "));
  if (stem == L"con" || stem == L"prn" || stem == L"aux" || stem == L"nul" || stem == L"conin$" ||
      stem == L"conout$") {
    return true;
  }
  return stem.size() == 4 && (stem.starts_with(L"com") || stem.starts_with(L"lpt")) &&
         (IsAsciiDigit(stem[3]) ||
          std::wstring_view(L"\u00B9\u00B2\u00B3").find(stem[3]) != std::wstring_view::npos);
}

}  // namespace

std::optional<std::wstring> ArchiveName(std::wstring_view name_template,
                                        const ArchiveNameValues& values) {
  const ClockTime& time = values.time;
  const std::wstring date = PaddedDecimal(time.year, 4) + L"-" + PaddedDecimal(time.month, 2) +
                            L"-" + PaddedDecimal(time.day, 2);
  const std::wstring clock = PaddedDecimal(time.hour, 2) + L"-" + PaddedDecimal(time.minute, 2) +
                             L"-" + PaddedDecimal(time.second, 2);
  const Placeholder placeholders[] = {
      {L"%BOARD%", values.board}, {L"%DATE%", date}, {L"%TIME%", clock}, {L"%USER%", values.user}};
  std::wstring name = FillPlaceholders(name_template, placeholders);
  if (!LowerAscii(name).ends_with(kEnding)) {
    name += kEnding;
  }
  if (name.size() == kEnding.size() || name.size() > kLongestName ||
      std::ranges::any_of(name, IsForbidden) || NamesDevice(name)) {
    return std::nullopt;
  }
  return name;
}

}  // namespace kestrune
