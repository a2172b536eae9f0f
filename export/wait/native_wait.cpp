#include "export/wait/native_wait.h"

namespace kestrune {
namespace {

constexpr int kEqualLooks = 3;

}  // namespace

bool SizeWatch::Look(std::optional<std::uint64_t> size) {
  const std::uint64_t seen = size.value_or(0);
  equal_looks_ = seen != 0 && seen == previous_ ? equal_looks_ + 1 : 0;
  previous_ = seen;
  return equal_looks_ == kEqualLooks;
}

std::optional<std::uint64_t> WaitForStableSize(
    const std::function<std::optional<std::uint64_t>()>& look, const std::function<void()>& sleep) {
  SizeWatch watch;
  for (int round = 0; round < kWaitRounds; ++round) {
    const std::optional<std::uint64_t> size = look();
    if (watch.Look(size)) {
      return size;
    }
    sleep();
  }
  return std::nullopt;
}

}  // namespace kestrune
