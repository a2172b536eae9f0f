#include "export/wait/native_wait.h"

namespace kestrune {
namespace {

constexpr int kEqualPolls = 3;

}  // namespace

bool SizeWatch::Record(std::optional<std::uint64_t> size) {
  const std::uint64_t seen = size.value_or(0);
  equal_polls_ = seen != 0 && seen == previous_ ? equal_polls_ + 1 : 0;
  previous_ = seen;
  return equal_polls_ == kEqualPolls;
}

std::optional<std::uint64_t> WaitForStableSize(
    const std::function<std::optional<std::uint64_t>()>& poll, const std::function<void()>& sleep) {
  SizeWatch watch;
  for (int round = 0; round < kWaitRounds; ++round) {
    const std::optional<std::uint64_t> size = poll();
    if (watch.Record(size)) {
      return size;
    }
    sleep();
  }
  return std::nullopt;
}

}  // namespace kestrune
