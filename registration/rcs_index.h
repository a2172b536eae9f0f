#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace altium_registration {

/// Stands for "none" where items of a file are numbered.
inline constexpr std::uint32_t kNoRcsItem = 0xFFFFFFFF;

/// A hash index over items that are numbered and stored elsewhere: 8 bytes a slot and no
/// allocation per item, as a file of the largest size names a million of them.
class RcsIndex {
 public:
  /// The item with this hash for which `same(item)` holds, or kNoRcsItem.
  template <typename Same>
  std::uint32_t Find(std::uint32_t hash, const Same& same) const {
    if (slots_.empty()) {
      return kNoRcsItem;
    }
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask; slots_[i].item != kNoRcsItem; i = (i + 1) & mask) {
      if (slots_[i].hash == hash && same(slots_[i].item)) {
        return slots_[i].item;
      }
    }
    return kNoRcsItem;
  }

  /// Adds an item that is not there yet.
  void Add(std::uint32_t hash, std::uint32_t item) {
    if ((count_ + 1) * 2 > slots_.size()) {
      Grow();
    }
    Put({hash, item});
    ++count_;
  }

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t item = kNoRcsItem;
  };

  void Put(Slot slot) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = slot.hash & mask;
    while (slots_[i].item != kNoRcsItem) {
      i = (i + 1) & mask;
    }
    slots_[i] = slot;
  }

  void Grow() {
    std::vector<Slot> old(slots_.empty() ? kFirstSlots : slots_.size() * 2);
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.item != kNoRcsItem) {
        Put(slot);
      }
    }
  }

  static constexpr std::size_t kFirstSlots = 64;

  /// A power of two in number, at most half of them in use.
  std::vector<Slot> slots_;
  std::size_t count_ = 0;
};

}  // namespace altium_registration
