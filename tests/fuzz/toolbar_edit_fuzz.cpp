// The first byte chooses options, the rest is a customization file. Parse, edit and validation must
// agree with the naive implementation and obey the other laws of customization files.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/support/registration/rcs_mutator.h"
#include "tests/support/registration/rcs_laws.h"

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max, unsigned seed) {
  return MutateRcsInput(data, size, max, seed, 1);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::uint8_t options = data[0];
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const altium_registration::Spec spec = {(options & 1) != 0 ? "C:\\K\\a.PrjScr" : "c:/k/A.PrjScr",
                                          "i.bmp", (options & 2) != 0 ? "d" : "It's", "T", "R"};
  const rcs_model::Kinds extra =
      (options & 4) != 0 ? rcs_model::Kinds{"Change"} : rcs_model::Kinds{};
  const bool strict = (options & 16) == 0;
  if (!rcs_laws::BrokenParseLaw(text, {.strict = strict, .extra_record_kinds = extra}).empty() ||
      !rcs_laws::BrokenEditLaw(text, spec, (options & 8) != 0, extra).empty()) {
    std::abort();
  }
  return 0;
}
