#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace altium_registration {

/// The registry's code for a text value (REG_SZ).
inline constexpr std::uint32_t kRegistryText = 1;

/// One value of the host's script project list as the registry holds it.
struct RegistryValue {
  /// The value's name, UTF-16 units, in the registry's own spelling.
  std::wstring name;
  /// The registry type code (kRegistryText for text).
  std::uint32_t type = 0;
  /// The data bytes as stored; texts are UTF-16LE including their terminating NUL.
  std::vector<std::byte> data;
};

}  // namespace altium_registration
