#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrune {

/// Unpacks a whole deflate stream (RFC 1951, without a zlib or gzip header). Throws Failure when
/// the data is damaged or truncated, when bytes follow its last block, or when the output exceeds
/// `limit` bytes. Allocates at most `limit` bytes for the output.
std::string Inflate(std::string_view deflated, std::size_t limit);

}  // namespace kestrune
