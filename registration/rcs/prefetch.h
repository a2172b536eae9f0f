#pragma once

namespace altium_registration {

/// Has the memory fetch what stands at an address and will be read soon, where the compiler can say
/// so. Changes nothing but time; the address need not be valid.
inline void Prefetch([[maybe_unused]] const void* address) {
#if defined(__GNUC__)
  __builtin_prefetch(address);
#endif
}

}  // namespace altium_registration
