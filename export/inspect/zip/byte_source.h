#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "common/failure/failure.h"

namespace kestrune {

/// Provides random access to the bytes of a file.
struct ByteSource {
  /// In bytes.
  std::uint64_t size = 0;
  /// Returns exactly `count` bytes from `offset`, or throws Failure. Called only for ranges within
  /// `size`.
  std::function<std::string(std::uint64_t offset, std::size_t count)> read;
};

/// Returns `count` bytes from `offset`. Throws Failure when the range ends after the end of the
/// file.
inline std::string ReadAt(const ByteSource& source, std::uint64_t offset, std::size_t count) {
  if (offset > source.size || count > source.size - offset) {
    throw Failure{L"The archive is truncated."};
  }
  return source.read(offset, count);
}

}  // namespace kestrune
