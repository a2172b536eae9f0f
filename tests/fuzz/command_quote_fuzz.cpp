// Input: arguments, one on each line. Law: quoted and joined by blanks they are split back
// unchanged; an argument without blank, tab and quote is not touched.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/text/text.h"
#include "export/deliver/application/argument_line.h"
#include "tests/support/process/split_command_line.h"
#include "tests/support/require_law.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring input =
      kestrune::WidenBytes(std::string_view(reinterpret_cast<const char*>(data), size));
  std::vector<std::wstring> arguments;
  std::wstring line;
  for (std::size_t at = 0; at < input.size();) {
    const std::size_t end = std::min(input.find(L'\n', at), input.size());
    if (end > at) {
      const std::wstring argument = input.substr(at, end - at);
      const std::wstring quoted = kestrune::QuoteCommandLineArgument(argument);
      if (argument.find_first_of(L" \t\"") == std::wstring::npos && quoted != argument) {
        std::abort();
      }
      line += (line.empty() ? L"" : L" ") + quoted;
      arguments.push_back(argument);
    }
    at = end + 1;
  }
  Require(kestrune::SplitCommandLine(line) == arguments);
  return 0;
}
