#include "common/sha256_win32.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "common/failure_win32.h"
#include "common/file_win32.h"
#include "common/owners_win32.h"

namespace kestrune {
namespace {

constexpr std::size_t kChunk = std::size_t{1} << 20;

class Hasher {
 public:
  Hasher() {
    if (!CryptAcquireContextW(provider_.Put(), nullptr, nullptr, PROV_RSA_AES,
                              CRYPT_VERIFYCONTEXT)) {
      ThrowLastError(L"SHA provider");
    }
    if (!CryptCreateHash(provider_.Get(), CALG_SHA_256, 0, 0, hash_.Put())) {
      ThrowLastError(L"SHA256 unavailable.");
    }
  }

  void Add(std::string_view bytes) {
    while (!bytes.empty()) {
      const std::string_view chunk = bytes.substr(0, kChunk);
      const auto* data = reinterpret_cast<const BYTE*>(chunk.data());
      if (!CryptHashData(hash_.Get(), data, static_cast<DWORD>(chunk.size()), 0)) {
        ThrowLastError(L"SHA256 unavailable.");
      }
      bytes.remove_prefix(chunk.size());
    }
  }

  [[nodiscard]] std::string Digest() const {
    std::array<BYTE, 32> digest{};
    auto size = static_cast<DWORD>(digest.size());
    if (!CryptGetHashParam(hash_.Get(), HP_HASHVAL, digest.data(), &size, 0)) {
      ThrowLastError(L"SHA256 unavailable.");
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
  CryptProvider provider_;
  CryptHash hash_;
};

}  // namespace

std::string Sha256(std::string_view bytes) {
  Hasher hasher;
  hasher.Add(bytes);
  return hasher.Digest();
}

std::string Sha256OfFile(HANDLE file) {
  Hasher hasher;
  std::vector<char> buffer(kChunk);
  for (DWORD read = 1; read != 0;) {
    if (!ReadFile(file, buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr)) {
      ThrowLastError(L"Read file");
    }
    hasher.Add({buffer.data(), read});
  }
  return hasher.Digest();
}

std::string Sha256OfFile(const std::wstring& path) {
  const FileHandle file = OpenForReading(path);
  if (!file) {
    ThrowLastError(L"Open file");
  }
  return Sha256OfFile(file.Get());
}

}  // namespace kestrune
