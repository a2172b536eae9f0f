#include "install/runtime_script.h"

#include "common/text.h"

namespace kestrune {
namespace {

constexpr std::string_view kRuntimeRoot = "@RUNTIME_ROOT@";
constexpr std::string_view kTempRoot = "@TEMP_ROOT@";

std::wstring Padded(unsigned value, std::size_t width) {
  std::wstring digits = Decimal(value);
  return digits.size() < width ? std::wstring(width - digits.size(), L'0') + digits : digits;
}

}  // namespace

std::string FillScriptTemplate(std::string_view script, std::string_view runtime_root,
                               std::string_view temp_root) {
  std::string filled;
  for (std::size_t at = script.find(kRuntimeRoot); at != std::string_view::npos;
       at = script.find(kRuntimeRoot)) {
    filled += ReplaceAll(script.substr(0, at), kTempRoot, temp_root);
    filled += runtime_root;
    script.remove_prefix(at + kRuntimeRoot.size());
  }
  return filled += ReplaceAll(script, kTempRoot, temp_root);
}

std::wstring IncomingScriptName(const IncomingTime& time) {
  return L"script-" + Padded(time.year, 4) + Padded(time.month, 2) + Padded(time.day, 2) + L"_" +
         Padded(time.hour, 2) + Padded(time.minute, 2) + Padded(time.second, 2) + L"_" +
         Padded(time.milliseconds, 3) + L".incoming";
}

}  // namespace kestrune
