#include "registration/rcs/rcs_text.h"

namespace altium_registration {
namespace {

std::string Collapsed(std::string_view written) {
  std::string text;
  text.reserve(written.size());
  for (std::size_t i = 0; i < written.size(); ++i) {
    text.push_back(written[i]);
    if (written[i] == kRcsQuote) {
      ++i;
    }
  }
  return text;
}

}  // namespace

std::string RcsText::ToString() const {
  return doubled_ ? Collapsed(written_) : std::string(written_);
}

bool RcsText::EqualWhenCollapsed(const RcsText& left, const RcsText& right) {
  return left.ToString() == right.ToString();
}

std::string Quote(std::string_view value) {
  std::string quoted(1, kRcsQuote);
  quoted.reserve(value.size() + 2);
  for (const char byte : value) {
    quoted.append(byte == kRcsQuote ? 2 : 1, byte);
  }
  quoted.push_back(kRcsQuote);
  return quoted;
}

}  // namespace altium_registration
