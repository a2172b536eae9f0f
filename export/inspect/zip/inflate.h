#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrune {

/// Unpacks a whole deflate stream (RFC 1951, without a zlib or gzip header). Throws Failure when
/// the data is damaged or cut, when bytes follow its last block, or when more than `limit` bytes
/// come out; takes room for `limit` bytes at most.
std::string Inflate(std::string_view deflated, std::size_t limit);

}  // namespace kestrune
