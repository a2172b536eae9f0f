// The first byte chooses options, the rest is a customization file. Parse and edit must agree with
// the naive implementation, and what they answer must obey the laws of an edit.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "registration/rcs/toolbar_edit.h"
#include "tests/fuzz/rcs_mutator.h"
#include "tests/support/rcs_model.h"

namespace {

using altium_registration::EditRcs;
using altium_registration::RcsKinds;
using altium_registration::Spec;
using altium_registration::ValidateRcs;

constexpr std::array<std::string_view, 1> kChange = {"Change"};

void Require(bool law) {
  if (!law) {
    std::abort();
  }
}

bool SameText(const std::wstring& wide, const std::string& bytes) {
  bool same = wide.size() == bytes.size();
  for (std::size_t i = 0; same && i < bytes.size(); ++i) {
    same = wide[i] == static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]));
  }
  return same;
}

void CheckEdit(const std::string& text, const Spec& spec, bool install, RcsKinds carried,
               const rcs_model::Kinds& carried_names) {
  std::string edited;
  std::wstring error;
  const bool success = EditRcs(text, spec, install, edited, error, carried);
  const rcs_model::Outcome expected = rcs_model::Edit(text, spec, install, carried_names);
  Require(success == expected.success);
  if (!success) {
    Require(SameText(error, expected.error));
    return;
  }
  Require(edited == expected.text);
  Require(ValidateRcs(edited, spec, install, error, carried));
  std::string again;
  Require(EditRcs(edited, spec, install, again, error, carried) && again == edited);
  if (install) {
    std::string removed;
    Require(EditRcs(edited, spec, false, removed, error, carried));
    Require(ValidateRcs(removed, spec, false, error, carried));
  }
}

}  // namespace

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
  const Spec spec = {(options & 1) != 0 ? "C:\\K\\a.PrjScr" : "c:/k/A.PrjScr", "i.bmp",
                     (options & 2) != 0 ? "d" : "It's", "T", "R"};
  const bool carry = (options & 4) != 0;
  CheckEdit(text, spec, (options & 8) != 0, carry ? RcsKinds(kChange) : RcsKinds(),
            carry ? rcs_model::Kinds{"Change"} : rcs_model::Kinds{});
  return 0;
}
