#pragma once

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "registration/rcs/rcs_text.h"

namespace altium_registration {

/// The number that means "none" for the items of a file.
inline constexpr std::uint32_t kNoItem = 0xFFFFFFFF;

/// Returns a number that the author of a file cannot predict.
inline std::uint64_t UnforeseeableSeed() {
  constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
  const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
  const std::uint64_t mixed = static_cast<std::uint64_t>(now) * kSpread;
  return (mixed ^ (mixed >> 29)) * kSpread;
}

/// Holds a hash index of texts that are stored elsewhere, numbered from 0 in the order in which
/// they are added. It needs 12 to 20 bytes per text and no allocation per text, since the largest
/// file has a million identifiers. `text_of(number)` must return the text with this number.
class RcsIndex {
 public:
  explicit RcsIndex(std::uint64_t seed = UnforeseeableSeed()) : seed_(seed) {}

  /// Returns the number of this text, or kNoItem.
  template <typename TextOf>
  std::uint32_t Find(const RcsText& text, const TextOf& text_of) const {
    if (slots_.empty()) {
      return kNoItem;
    }
    const auto same = [&](std::uint32_t other) { return text_of(other) == text; };
    return slots_[PlaceOf(text.Hash(seed_), same)];
  }

  /// Adds a text unless it is present. Returns whether it was added.
  template <typename TextOf>
  bool Add(const RcsText& text, const TextOf& text_of) {
    const auto number = static_cast<std::uint32_t>(hashes_.size());
    if (SlotsFor(number + 1) > slots_.size()) {
      MakeSlots(number + 1);
      for (std::uint32_t known = 0; known < number; ++known) {
        slots_[PlaceOf(hashes_[known], [](std::uint32_t) { return false; })] = known;
      }
    }
    const std::uint32_t hash = text.Hash(seed_);
    const auto same = [&](std::uint32_t other) { return text_of(other) == text; };
    std::uint32_t& slot = slots_[PlaceOf(hash, same)];
    if (slot != kNoItem) {
      return false;
    }
    slot = number;
    hashes_.push_back(hash);
    return true;
  }

  /// Adds a text, which Find sees only after Build.
  void Append(const RcsText& text) { hashes_.push_back(text.Hash(seed_)); }
  void ReserveForAppend(std::size_t texts) { hashes_.reserve(texts); }

  /// Indexes the appended texts. Returns the number of the first one that repeats an earlier one,
  /// or kNoItem.
  ///
  /// Indexing many at once is faster than one at a time, since in a tight loop the processor
  /// overlaps their cache misses.
  template <typename TextOf>
  std::uint32_t Build(const TextOf& text_of) {
    const auto count = static_cast<std::uint32_t>(hashes_.size());
    MakeSlots(count);
    for (std::uint32_t number = 0; number < count; ++number) {
      const auto same = [&](std::uint32_t other) { return text_of(other) == text_of(number); };
      std::uint32_t& slot = slots_[PlaceOf(hashes_[number], same)];
      if (slot != kNoItem) {
        return number;
      }
      slot = number;
    }
    return kNoItem;
  }

 private:
  /// Returns the number of slots: a power of two of which at most half are in use. With more in use
  /// collisions cost more than the memory saves.
  static std::size_t SlotsFor(std::size_t texts) {
    constexpr std::size_t kFewest = 64;
    return std::max(kFewest, std::bit_ceil(2 * texts + 1));
  }

  void MakeSlots(std::size_t texts) { slots_.assign(SlotsFor(texts), kNoItem); }

  /// Returns the slot of the text with this hash for which `same(number)` holds, or the free slot
  /// for it.
  template <typename Same>
  std::size_t PlaceOf(std::uint32_t hash, const Same& same) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t place = hash & mask;
    while (slots_[place] != kNoItem && (hashes_[slots_[place]] != hash || !same(slots_[place]))) {
      place = (place + 1) & mask;
    }
    return place;
  }

  std::uint64_t seed_;
  /// The number of the text in each slot; kNoItem for a free slot.
  std::vector<std::uint32_t> slots_;
  /// The hash of each text, by number.
  std::vector<std::uint32_t> hashes_;
};

}  // namespace altium_registration
