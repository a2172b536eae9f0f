#pragma once

namespace kestrune {

/// Lets this process run out of memory until the end of the scope. A program whose tests use it
/// allocates through it all the time.
class ScarceMemory {
 public:
  /// What happens once `allowed` allocations have been made: one is refused, or all from then on.
  enum class Refused { One, AllFromThenOn };
  ScarceMemory(long allowed, Refused refused);
  /// Refuses the allocations of these two numbers, counted from 0.
  ScarceMemory(long one, long other);
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;
  ~ScarceMemory();

  /// How many allocations have been asked for in the scope.
  [[nodiscard]] static long Asked();
};

}  // namespace kestrune
