#include "export/prepare/dependency_list.h"

#include <algorithm>
#include <set>

#include "common/text/ordinal.h"
#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

std::wstring Decode(std::string_view bytes, const AnsiDecoder& decode_ansi) {
  if (bytes.starts_with(kUtf16Mark)) {
    return WideFromUtf16Le(bytes.substr(kUtf16Mark.size()));
  }
  if (bytes.starts_with(kUtf8Mark)) {
    return WideFromUtf8(bytes.substr(kUtf8Mark.size()));
  }
  return decode_ansi(bytes);
}

}  // namespace

std::vector<std::wstring> ParseDependencyList(std::string_view bytes,
                                              const AnsiDecoder& decode_ansi) {
  const std::wstring text = Decode(bytes, decode_ansi);
  std::vector<std::wstring> lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find(L'\n', start), text.size());
    std::wstring_view line(text.data() + start, end - start);
    if (line.ends_with(L'\r')) {
      line.remove_suffix(1);
    }
    if (!line.empty()) {
      lines.emplace_back(line);
    }
    start = end + 1;
  }
  return lines;
}

std::vector<std::wstring> WithoutRepeatedPaths(const std::vector<std::wstring>& paths) {
  std::set<std::wstring_view, OrdinalLess> seen;
  std::vector<std::wstring> kept;
  for (const std::wstring& path : paths) {
    if (seen.insert(path).second) {
      kept.push_back(path);
    }
  }
  return kept;
}

}  // namespace kestrune
