#pragma once

#include <cstddef>

namespace altium_registration {

/// The largest customization file that is read or written (8 MiB). Real ones have about 20 KiB; the
/// limit protects the memory of a 32-bit process from an unexpected file.
inline constexpr std::size_t kMaxRcsBytes = 8'388'608;

}  // namespace altium_registration
