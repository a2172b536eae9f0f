// The input is a host's toolbar definitions; the anchor must be found exactly when the naive
// implementation finds it.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "registration/rcs/toolbar_edit.h"
#include "tests/support/registration/rcs_mutator.h"
#include "tests/support/registration/rcs_model.h"

namespace {

const std::vector<std::string> kChange = {"Change"};

void RequireAgreement(const std::string& text, const std::string& tree, const std::string& item) {
  if (altium_registration::HasAnchor(text, tree, item) !=
          rcs_model::HasAnchor(text, tree, item, {}) ||
      altium_registration::HasAnchor(text, tree, item, kChange) !=
          rcs_model::HasAnchor(text, tree, item, kChange)) {
    std::abort();
  }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max, unsigned seed) {
  return MutateRcsInput(data, size, max, seed, 0);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  RequireAgreement(text, "PCBCustom", "L");
  RequireAgreement(text, "X", "Y");
  return 0;
}
