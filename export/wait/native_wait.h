#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace kestrune {

/// The number of times the size is polled, and the sleep after each: two minutes in all.
inline constexpr int kWaitRounds = 240;
inline constexpr unsigned kWaitSleepMilliseconds = 500;

/// Decides when a growing file is complete: the host writes its archive without pauses, so writing
/// has ended when the size is unchanged over three sleeps.
class SizeWatch {
 public:
  /// Records one polled size in bytes, or nothing when the file is absent or its size cannot be
  /// read. Returns true when the same size, not 0, was recorded four times in a row.
  bool Record(std::optional<std::uint64_t> size);

 private:
  std::uint64_t previous_ = 0;
  int equal_polls_ = 0;
};

/// Calls `poll`, which returns the size in bytes, and `sleep` in turn until the size is stable.
/// Returns the size, or nothing after kWaitRounds rounds; the last round sleeps too.
std::optional<std::uint64_t> WaitForStableSize(
    const std::function<std::optional<std::uint64_t>()>& poll, const std::function<void()>& sleep);

}  // namespace kestrune
