#pragma once

#include <string>
#include <vector>

namespace kestrune {

/// Returns the arguments after a Windows program's own path: blanks separate, double quotes group,
/// 2n backslashes before a quote mean n, and 2n + 1 mean n and the quote itself. It follows these
/// rules independently of the product's quoting, which is tested with it. That quoting never
/// produces two quotes in a row inside a group, which run-time libraries interpret differently.
inline std::vector<std::wstring> SplitCommandLine(const std::wstring& line) {
  std::vector<std::wstring> arguments;
  std::size_t at = 0;
  const auto is_blank = [&] { return line[at] == L' ' || line[at] == L'\t'; };
  for (;;) {
    while (at < line.size() && is_blank()) {
      ++at;
    }
    if (at == line.size()) {
      return arguments;
    }
    std::wstring argument;
    bool in_quotes = false;
    while (at < line.size() && (in_quotes || !is_blank())) {
      std::size_t backslashes = 0;
      while (at < line.size() && line[at] == L'\\') {
        ++backslashes;
        ++at;
      }
      const bool before_quote = at < line.size() && line[at] == L'"';
      argument.append(before_quote ? backslashes / 2 : backslashes, L'\\');
      if (before_quote && backslashes % 2 == 0) {
        in_quotes = !in_quotes;
        ++at;
      } else if (before_quote || backslashes == 0) {
        argument.push_back(line[at++]);
      }
    }
    arguments.push_back(argument);
  }
}

}  // namespace kestrune
