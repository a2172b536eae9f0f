#pragma once

#include <cstddef>

namespace altium_registration {

/// The largest customization file that is read or written (8 MiB). Real ones have some 20 KiB; the
/// limit keeps a foreign file from filling the memory of a 32-bit process.
inline constexpr std::size_t kMaxRcsBytes = 8'388'608;

}  // namespace altium_registration
