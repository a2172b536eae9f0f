#pragma once

#include <string>

#include "export/inspect/zip/byte_source.h"

namespace kestrune {

/// Returns a source that reads from these bytes, which it copies. A range outside of them, which no
/// caller may request, throws std::out_of_range or is truncated.
inline ByteSource ByteSourceOf(std::string bytes) {
  const std::uint64_t size = bytes.size();
  return {size, [held = std::move(bytes)](std::uint64_t offset, std::size_t count) {
            return held.substr(static_cast<std::size_t>(offset), count);
          }};
}

}  // namespace kestrune
