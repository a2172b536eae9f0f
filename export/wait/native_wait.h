#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace kestrune {

/// How often the wait looks, and how long it sleeps after each look: two minutes in all.
inline constexpr int kWaitRounds = 240;
inline constexpr unsigned kWaitSleepMilliseconds = 500;

/// Decides when a growing file is complete: the host writes its archive in one go, so a size that
/// holds over three sleeps is taken as the end of the write.
class SizeWatch {
 public:
  /// Takes what one look saw: the size in bytes, or nothing when the file is absent or its size
  /// cannot be read. True when the same size, not 0, was seen four times in a row.
  bool Look(std::optional<std::uint64_t> size);

 private:
  std::uint64_t previous_ = 0;
  int equal_looks_ = 0;
};

/// Looks and sleeps in turn until the size is stable. Answers the size, or nothing when the rounds
/// ran out; the last round sleeps too.
std::optional<std::uint64_t> WaitForStableSize(
    const std::function<std::optional<std::uint64_t>()>& look, const std::function<void()>& sleep);

}  // namespace kestrune
