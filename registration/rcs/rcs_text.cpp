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

std::uint32_t RcsText::HashOfCollapsed(std::uint64_t seed) const {
  return HashOfBytes(Collapsed(written_), seed);
}

bool RcsText::MeansSame(const RcsText& left, const RcsText& right) {
  const RcsText& doubled = left.doubled_ ? left : right;
  const RcsText& plain = left.doubled_ ? right : left;
  return doubled.Becomes(plain.written_, [](char byte) { return byte; });
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
