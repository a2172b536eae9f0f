#include "tests/support/registration/run_rows.h"

#include <stdexcept>

namespace altium_registration {
namespace {

constexpr std::string_view kRows[] = {
#include "tests/support/registration/run_rows.inc"
};

}  // namespace

std::vector<RunRow> RunRows() {
  constexpr std::string_view kSeparator = " -> ";
  std::vector<RunRow> rows;
  for (const std::string_view text : kRows) {
    const std::size_t end = text.find(kSeparator);
    if (end == std::string_view::npos) {
      throw std::runtime_error("no row: " + std::string(text));
    }
    rows.push_back(
        {text, Scenario::Parse(text.substr(0, end)), text.substr(end + kSeparator.size())});
  }
  return rows;
}

}  // namespace altium_registration
