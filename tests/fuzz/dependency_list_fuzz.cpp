#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/text/ordinal.h"
#include "common/text/text.h"
#include "export/prepare/dependency_list.h"
#include "tests/support/require_law.h"

namespace {

/// Returns the lines with Windows line ends.
std::string Written(const std::vector<std::wstring>& lines) {
  std::string bytes = "\xFF\xFE";
  const auto put = [&bytes](wchar_t unit) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>((unit >> 8) & 0xFF));
  };
  for (const std::wstring& line : lines) {
    std::for_each(line.begin(), line.end(), put);
    put(L'\r');
    put(L'\n');
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  bool asked_for_ansi = false;
  const auto decode = [&](std::string_view ansi) {
    asked_for_ansi = true;
    Require(ansi == bytes);
    return kestrune::WidenBytes(ansi);
  };
  const std::vector<std::wstring> lines = kestrune::ParseDependencyList(bytes, decode);

  Require(asked_for_ansi != (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xEF\xBB\xBF")));
  for (const std::wstring& line : lines) {
    Require(!line.empty() && line.find(L'\n') == std::wstring::npos);
  }
  Require(kestrune::ParseDependencyList(Written(lines), decode) == lines);

  const std::vector<std::wstring> kept = kestrune::WithoutRepeatedPaths(lines);
  Require(kestrune::WithoutRepeatedPaths(kept) == kept);
  auto from = kept.begin();
  for (const std::wstring& line : lines) {
    // Each line is either the next kept one or equal to one that was kept before.
    if (from != kept.end() && line == *from) {
      ++from;
      continue;
    }
    Require(std::any_of(kept.begin(), from, [&](const std::wstring& earlier) {
      return kestrune::EqualIgnoringCase(earlier, line);
    }));
  }
  Require(from == kept.end());
  return 0;
}
