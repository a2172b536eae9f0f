// Host version texts: the parsed parts are those in the text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include "common/text/text.h"
#include "install/discovery/host_product.h"

namespace {

/// Parses a number in a second, slower way.
bool TakeNumber(const std::wstring& text, std::size_t& at, std::int32_t& number) {
  std::size_t i = at;
  while (i < text.size() && (text[i] == L' ' || (text[i] >= 9 && text[i] <= 13))) {
    ++i;
  }
  double sign = 1;
  if (i < text.size() && (text[i] == L'+' || text[i] == L'-')) {
    sign = text[i] == L'-' ? -1 : 1;
    ++i;
  }
  const std::size_t first = i;
  // A double is exact far beyond 32 bits, and saturates by itself.
  double value = 0;
  for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i) {
    value = value * 10 + (text[i] - L'0');
  }
  if (i == first) {
    return false;
  }
  value *= sign;
  const double largest = std::numeric_limits<std::int32_t>::max();
  const double smallest = std::numeric_limits<std::int32_t>::min();
  number = value > largest    ? std::numeric_limits<std::int32_t>::max()
           : value < smallest ? std::numeric_limits<std::int32_t>::min()
                              : static_cast<std::int32_t>(value);
  at = i;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = kestrune::WideFromUtf8({reinterpret_cast<const char*>(data), size});
  const kestrune::HostVersion version = kestrune::ParseHostVersion(text);
  std::int32_t expected[3] = {};
  std::size_t at = 0;
  for (int part = 0; part < 3 && TakeNumber(text, at, expected[part]); ++part) {
    if (at >= text.size() || text[at] != L'.') {
      break;
    }
    ++at;
  }
  if (version.major != expected[0] || version.minor != expected[1] ||
      version.build != expected[2]) {
    std::abort();
  }
  return 0;
}
