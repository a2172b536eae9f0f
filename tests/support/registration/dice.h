#pragma once

#include <cstdint>

namespace kestrune_tests {

/// Generates random numbers that are the same on every platform.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15U + 1) {}

  std::uint32_t Below(std::uint32_t limit) {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<std::uint32_t>((state_ >> 11) % limit);
  }
  bool Chance(std::uint32_t percent) { return Below(100) < percent; }
  template <typename List>
  const auto& Of(const List& list) {
    return list[Below(static_cast<std::uint32_t>(list.size()))];
  }

 private:
  std::uint64_t state_;
};

}  // namespace kestrune_tests
