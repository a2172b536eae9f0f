// Input: a mailslot name. Laws: the process ID equals that of a naive parser; a name with a process
// ID is valid; a valid name is the prefix and digits, so that it never denotes anything but a
// mailslot.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/text/text.h"
#include "export/deliver/application/mailslot_name.h"

namespace {

bool IsAllDigits(const std::string& text) {
  return text.find_first_not_of("0123456789") == std::string::npos;
}

/// Returns the number; 0 when there is none.
std::uint32_t NaiveNumber(std::string digits) {
  if (digits.empty() || !IsAllDigits(digits)) {
    return 0;
  }
  digits.erase(0, digits.find_first_not_of('0'));
  const std::string none = "4294967295";
  if (digits.size() > none.size() || (digits.size() == none.size() && digits >= none)) {
    return 0;
  }
  return digits.empty() ? 0 : static_cast<std::uint32_t>(std::stoul(digits));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string prefix = "TAVORIN.Kestrune.";
  const bool has_prefix = input.compare(0, prefix.size(), prefix) == 0;
  const std::string rest = has_prefix ? input.substr(prefix.size()) : "";
  const std::wstring name = kestrune::WidenBytes(input);
  const std::uint32_t number = kestrune::ListenerProcessId(name);
  const bool sendable = kestrune::IsMailslotName(name);
  if (number != NaiveNumber(rest) || sendable != (!rest.empty() && IsAllDigits(rest)) ||
      (number != 0 && !sendable)) {
    std::abort();
  }
  return 0;
}
