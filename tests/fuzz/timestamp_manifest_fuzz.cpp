// Input: a manifest value. Law: an accepted value is equal to that written for its time and digest.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/text/text.h"
#include "install/deploy/package_timestamp.h"

namespace {

std::wstring Digits(std::uint32_t value) {
  std::wstring text;
  for (int shift = 28; shift >= 0; shift -= 4) {
    text += L"0123456789ABCDEF"[value >> shift & 15U];
  }
  return text;
}

std::wstring Written(const kestrune::ManifestEntry& entry) {
  return Digits(static_cast<std::uint32_t>(entry.time >> 32)) + L":" +
         Digits(static_cast<std::uint32_t>(entry.time)) + L"|" + std::wstring(entry.digest);
}

void Check(const std::wstring& value) {
  kestrune::ManifestEntry entry;
  if (kestrune::ParseManifestValue(value, entry) &&
      (entry.time == 0 || entry.digest.size() != 64 || Written(entry) != value)) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  Check(kestrune::WideFromUtf8(bytes));
  // Most inputs have another length; this one gets to the digits.
  std::wstring value = kestrune::WidenBytes(bytes);
  value.resize(82, L'0');
  value[8] = L':';
  value[17] = L'|';
  Check(value);
  const std::wstring name = kestrune::WidenBytes(bytes);
  if (kestrune::IsManifestName(name) && (name.size() < 8 || name[3] != L'_')) {
    std::abort();
  }
  return 0;
}
