// The cost of an edit in counts instead of time: the executed basic blocks and the allocated bytes.
// Requires code that was compiled to count basic blocks, as the build with sanitizers is.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/support/registration/rcs_edit.h"
#include "tests/support/registration/rcs_shapes.h"

#ifdef KESTRUNE_COUNTS_STEPS

namespace {

std::uint64_t steps = 0;
std::uint64_t allocated_bytes = 0;

}  // namespace

extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*,
                                                                  std::size_t),
                                              void (*free_hook)(const volatile void*));

/// Counts the basic blocks of the customization file's code.
__attribute__((no_sanitize("address", "undefined"))) void __sanitizer_cov_trace_pc() {
  ++steps;
}
}

namespace altium_registration {
namespace {

using kestrune_tests::BenchSpec;
using kestrune_tests::Edited;
using kestrune_tests::EditText;

constexpr std::size_t kSize = 128 * 1024;

void CountAllocation(const volatile void* /*block*/, std::size_t size) {
  allocated_bytes += size;
}

void IgnoreRelease(const volatile void* /*block*/) {}

/// Returns basic blocks plus an eighth of the allocated bytes for all operations on a file: status,
/// install and removal.
std::uint64_t WorkOn(const std::string& text) {
  static const int hooks =
      __sanitizer_install_malloc_and_free_hooks(CountAllocation, IgnoreRelease);
  EXPECT_GT(hooks, 0);
  steps = 0;
  allocated_bytes = 0;
  std::wstring error;
  kestrune_tests::ValidateText(text, BenchSpec(), true, error);
  const Edited installed = EditText(text, BenchSpec(), true);
  EXPECT_TRUE(installed.success);
  EXPECT_TRUE(EditText(installed.text, BenchSpec(), false).success);
  EXPECT_GT(steps, 0U);
  EXPECT_GT(allocated_bytes, 3 * text.size());
  return steps + allocated_bytes / 8;
}

/// Returns the work per thousand bytes of an ordinary file.
std::uint64_t OrdinaryWork() {
  const std::string text = kestrune_tests::RealisticFile(kSize);
  return WorkOn(text) * 1000 / text.size();
}

void ExpectLinear(const std::string& text, std::uint64_t ordinary) {
  EXPECT_LE(WorkOn(text) * 1000 / text.size(), 10 * ordinary);
}

TEST(RcsWork, OrdinaryFileTakesFewStepsPerByte) {
  const std::uint64_t small = WorkOn(kestrune_tests::RealisticFile(kSize));
  const std::uint64_t large = WorkOn(kestrune_tests::RealisticFile(4 * kSize));
  EXPECT_GT(small, kSize);
  EXPECT_LT(large, 5 * small);
}

TEST(RcsWork, NoShapeCostsTenTimesOrdinaryFile) {
  const std::uint64_t ordinary = OrdinaryWork();
  for (const kestrune_tests::RcsShape& shape : kestrune_tests::kRcsShapes) {
    SCOPED_TRACE(shape.name);
    ExpectLinear(shape.make(kSize), ordinary);
  }
}

TEST(RcsWork, NoMixtureCostsTenTimesOrdinaryFile) {
  const std::uint64_t ordinary = OrdinaryWork();
  for (std::uint64_t seed = 0; seed < 12; ++seed) {
    SCOPED_TRACE(seed);
    ExpectLinear(kestrune_tests::RcsMixture(seed, kSize).File(), ordinary);
  }
}

TEST(RcsWork, CollidingIdentifiersCostNoMoreThanOthers) {
  std::string text;
  for (const std::string& identifier : kestrune_tests::CollidingIdentifiers(0, kSize / 30)) {
    text += "PL " + identifier + " End\n";
  }
  ExpectLinear(text, OrdinaryWork());
}

}  // namespace
}  // namespace altium_registration

#endif
