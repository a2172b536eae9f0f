#pragma once

namespace kestrune {

/// Makes this process run out of memory until the end of the scope. A test program that links it
/// makes all its allocations through it.
class ScarceMemory {
 public:
  /// Lists which allocations fail after `allowed` ones: the next one, or all from then on.
  enum class Refused { One, AllFromThenOn };
  ScarceMemory(long allowed, Refused refused);
  /// Fails the allocations with these two numbers, counted from 0.
  ScarceMemory(long one, long other);
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;
  ~ScarceMemory();

  /// Returns the number of attempted allocations in the scope.
  [[nodiscard]] static long Asked();
};

}  // namespace kestrune
