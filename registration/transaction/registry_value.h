#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace altium_registration {

/// The registry's code for a text value (REG_SZ).
inline constexpr std::uint32_t kRegistryText = 1;

/// Holds one value of the host's script project list as stored in the registry.
struct RegistryValue {
  /// The value's name in UTF-16 units, as spelled in the registry.
  std::wstring name;
  /// The registry type code (kRegistryText for text).
  std::uint32_t type = 0;
  /// The data bytes as stored; texts are UTF-16LE including the terminating null.
  std::vector<std::byte> data;
};

}  // namespace altium_registration
