#include "common/log/log_line.h"

#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::size_t kLongestLine = 8192;

}  // namespace

std::string FormatLogLine(const ClockTime& time, std::wstring_view stage,
                          std::wstring_view detail) {
  std::wstring line = L"[" + Decimal(time.year) + L"-" + Decimal(time.month) + L"-" +
                      Decimal(time.day) + L" " + Decimal(time.hour) + L":" + Decimal(time.minute) +
                      L":" + Decimal(time.second) + L"] Stage: ";
  line.append(stage);
  if (!detail.empty()) {
    line.append(L" | ").append(detail);
  }
  if (line.size() > kLongestLine) {
    line.resize(kLongestLine);
  }
  return Utf8FromWide(line) + "\r\n";
}

}  // namespace kestrune
