#include "install/deploy/runtime_script.h"

#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::string_view kRuntimeRoot = "@RUNTIME_ROOT@";
constexpr std::string_view kTempRoot = "@TEMP_ROOT@";

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

std::wstring IncomingScriptName(const ClockTime& time) {
  return L"script-" + ClockStamp(time) + L".incoming";
}

}  // namespace kestrune
