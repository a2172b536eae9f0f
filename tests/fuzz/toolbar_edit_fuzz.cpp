// The first byte chooses options, the rest is a customization file. Parse and edit must agree with
// the naive implementation, and their results must obey the laws of an edit.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/fuzz/rcs_mutator.h"
#include "tests/support/registration/rcs_edit.h"
#include "tests/support/registration/rcs_model.h"

namespace {

using altium_registration::Spec;
using kestrune_tests::Edited;
using kestrune_tests::EditText;
using kestrune_tests::ValidateText;

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

void CheckEdit(const std::string& text, const Spec& spec, bool install,
               const rcs_model::Kinds& extra) {
  const Edited edited = EditText(text, spec, install, extra);
  const rcs_model::Outcome expected = rcs_model::Edit(text, spec, install, extra);
  Require(edited.success == expected.success);
  if (!edited.success) {
    Require(SameText(edited.error, expected.error));
    return;
  }
  std::wstring error;
  Require(edited.text == expected.text);
  Require(ValidateText(edited.text, spec, install, error, extra));
  const Edited again = EditText(edited.text, spec, install, extra);
  Require(again.success && again.text == edited.text);
  if (install) {
    const Edited removed = EditText(edited.text, spec, false, extra);
    Require(removed.success && ValidateText(removed.text, spec, false, error, extra));
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
  const bool let_through = (options & 4) != 0;
  CheckEdit(text, spec, (options & 8) != 0,
            let_through ? rcs_model::Kinds{"Change"} : rcs_model::Kinds{});
  return 0;
}
