#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "common/failure/failure.h"
#include "export/inspect/zip/inflate.h"

namespace {

constexpr std::size_t kLimit = 64 * 1024;

void Require(bool law) {
  if (!law) {
    std::abort();
  }
}

std::optional<std::string> Ours(std::string_view deflated) {
  try {
    return kestrune::Inflate(deflated, kLimit);
  } catch (const kestrune::Failure&) {
    return std::nullopt;
  }
}

/// What zlib makes of the whole input; nothing when it refuses it, when bytes are left over, or
/// when more than kLimit bytes come out.
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

/// The input is a deflate stream. We and zlib make the same bytes of it, or both refuse it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view deflated(reinterpret_cast<const char*>(data), size);
  Require(Ours(deflated) == Zlibs(deflated));
  return 0;
}
