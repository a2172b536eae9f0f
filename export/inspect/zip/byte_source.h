#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "common/failure/failure.h"

namespace kestrune {

/// A file of which parts are read by their offset.
struct ByteSource {
  /// In bytes.
  std::uint64_t size = 0;
  /// Returns exactly `count` bytes from `offset`, or throws Failure. Called only for ranges that
  /// lie inside `size`.
  std::function<std::string(std::uint64_t offset, std::size_t count)> read;
};

/// Returns `count` bytes from `offset`. Throws Failure when the range reaches past the file's end.
inline std::string ReadAt(const ByteSource& source, std::uint64_t offset, std::size_t count) {
  if (offset > source.size || count > source.size - offset) {
    throw Failure{L"The archive ends too early."};
  }
  return source.read(offset, count);
}

}  // namespace kestrune
