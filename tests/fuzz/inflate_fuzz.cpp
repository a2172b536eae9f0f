#include <zlib.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/failure/failure.h"
#include "export/inspect/zip/inflate.h"
#include "tests/support/require_law.h"

namespace {

constexpr std::size_t kLimit = 64 * 1024;

std::optional<std::string> Ours(std::string_view deflated) {
  try {
    return kestrune::Inflate(deflated, kLimit);
  } catch (const kestrune::Failure&) {
    return std::nullopt;
  }
}

/// Returns the input unpacked by zlib; nothing when zlib rejects it, when bytes remain, or when the
/// output exceeds kLimit bytes.
std::optional<std::string> Zlibs(std::string_view deflated) {
  z_stream stream{};
  Require(inflateInit2(&stream, -15) == Z_OK);
  std::string content(kLimit + 1, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(deflated.data()));
  stream.avail_in = static_cast<uInt>(deflated.size());
  stream.next_out = reinterpret_cast<Bytef*>(content.data());
  stream.avail_out = static_cast<uInt>(content.size());
  const bool whole = inflate(&stream, Z_FINISH) == Z_STREAM_END && stream.avail_in == 0;
  content.resize(stream.total_out);
  inflateEnd(&stream);
  return whole && content.size() <= kLimit ? std::optional(content) : std::nullopt;
}

}  // namespace

/// Unpacks the input as a deflate stream. Inflate and zlib must return the same bytes, or both
/// reject it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view deflated(reinterpret_cast<const char*>(data), size);
  Require(Ours(deflated) == Zlibs(deflated));
  return 0;
}
