#include "common/files/sha256_win32.h"

#include <array>
#include <vector>

#include "common/failure/failure.h"
#include "common/failure/failure_win32.h"
#include "common/system/owners_win32.h"

namespace kestrune {
namespace {

constexpr std::size_t kChunk = std::size_t{1} << 20;

constexpr wchar_t kUnavailable[] = L"SHA256 unavailable.";

class Hasher {
 public:
  explicit Hasher(SystemCalls& calls) : calls_(calls) {
    if (!calls_.AcquireProvider(provider_.Put())) {
      ThrowLastError(L"SHA provider");
    }
    if (!calls_.CreateHash(provider_.Get(), hash_.Put())) {
      throw Failure{kUnavailable};
    }
  }

  void Add(std::string_view bytes) {
    while (!bytes.empty()) {
      const std::string_view chunk = bytes.substr(0, kChunk);
      if (!calls_.HashData(hash_.Get(), chunk.data(), static_cast<DWORD>(chunk.size()))) {
        throw Failure{kUnavailable};
      }
      bytes.remove_prefix(chunk.size());
    }
  }

  [[nodiscard]] std::string Digest() const {
    std::array<BYTE, 32> digest{};
    auto size = static_cast<DWORD>(digest.size());
    if (!calls_.GetHashValue(hash_.Get(), digest.data(), &size)) {
      throw Failure{kUnavailable};
    }
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (const unsigned byte : digest) {
      text += kDigits[byte >> 4U];
      text += kDigits[byte & 15U];
    }
    return text;
  }

 private:
  SystemCalls& calls_;
  CryptProvider provider_;
  CryptHash hash_;
};

}  // namespace

std::string Sha256(SystemCalls& calls, std::string_view bytes) {
  Hasher hasher(calls);
  hasher.Add(bytes);
  return hasher.Digest();
}

std::string Sha256OfFile(SystemCalls& calls, HANDLE file) {
  Hasher hasher(calls);
  std::vector<char> buffer(kChunk);
  for (DWORD read = 1; read != 0;) {
    if (!calls.Read(file, buffer.data(), static_cast<DWORD>(buffer.size()), &read)) {
      ThrowLastError(L"Read file");
    }
    hasher.Add({buffer.data(), read});
  }
  return hasher.Digest();
}

std::string Sha256OfFile(SystemCalls& calls, const ExtendedPath& path) {
  const FileHandle file(calls.Create(
      path,
      {.access = GENERIC_READ, .sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE}));
  if (!file) {
    ThrowLastError(L"Open file");
  }
  return Sha256OfFile(calls, file.Get());
}

}  // namespace kestrune
