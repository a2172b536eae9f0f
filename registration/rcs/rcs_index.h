#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "registration/rcs/prefetch.h"

namespace altium_registration {

/// Stands for "none" where items of a file are numbered.
inline constexpr std::uint32_t kNoRcsItem = 0xFFFFFFFF;

template <typename Word>
std::uint64_t LoadWord(const char* bytes) {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

inline constexpr std::uint64_t kHashFactor = 0x9E3779B97F4A7C15;

inline std::uint64_t Mixed(std::uint64_t hash, std::uint64_t word) {
  hash = (hash ^ word) * kHashFactor;
  return hash ^ hash >> 32;
}

/// The hash of a text for RcsIndex. Reads whole words, overlapping at the end: identifiers are
/// short, and every record has one.
inline std::uint32_t HashOf(std::string_view bytes) {
  const std::size_t size = bytes.size();
  const char* const data = bytes.data();
  std::uint64_t hash = size;
  if (size >= 8) {
    for (std::size_t at = 0; at + 8 < size; at += 8) {
      hash = Mixed(hash, LoadWord<std::uint64_t>(data + at));
    }
    hash = Mixed(hash, LoadWord<std::uint64_t>(data + size - 8));
  } else if (size >= 4) {
    hash =
        Mixed(hash, LoadWord<std::uint32_t>(data) << 32 | LoadWord<std::uint32_t>(data + size - 4));
  } else {
    for (const char byte : bytes) {
      hash = Mixed(hash, static_cast<unsigned char>(byte));
    }
  }
  return static_cast<std::uint32_t>(hash * kHashFactor >> 32);
}

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

  /// Adds an item unless one with this hash is there for which `same(item)` holds. Whether it was
  /// added.
  template <typename Same>
  bool Add(std::uint32_t hash, std::uint32_t item, const Same& same) {
    Reserve(count_ + 1);
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = hash & mask;
    for (; slots_[i].item != kNoRcsItem; i = (i + 1) & mask) {
      if (slots_[i].hash == hash && same(slots_[i].item)) {
        return false;
      }
    }
    slots_[i] = {hash, item};
    ++count_;
    return true;
  }

  /// Has the memory fetch the place of a hash that will be looked up soon. There must be room.
  void PrefetchPlace(std::uint32_t hash) const { Prefetch(&slots_[hash & (slots_.size() - 1)]); }

  /// Makes room for this many items at once.
  void Reserve(std::size_t items) {
    if (items + items / 3 >= slots_.size()) {
      Resize(std::bit_ceil(std::max(kFirstSlots, items + items / 3 + 1)));
    }
  }

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t item = kNoRcsItem;
  };

  void Resize(std::size_t slots) {
    std::vector<Slot> old(slots);
    old.swap(slots_);
    const std::size_t mask = slots_.size() - 1;
    for (const Slot& slot : old) {
      if (slot.item != kNoRcsItem) {
        std::size_t i = slot.hash & mask;
        while (slots_[i].item != kNoRcsItem) {
          i = (i + 1) & mask;
        }
        slots_[i] = slot;
      }
    }
  }

  static constexpr std::size_t kFirstSlots = 64;

  /// A power of two in number, at most three quarters of them in use.
  std::vector<Slot> slots_;
  std::size_t count_ = 0;
};

}  // namespace altium_registration
