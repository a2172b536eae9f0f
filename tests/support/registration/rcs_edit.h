#pragma once

#include <string>
#include <utility>
#include <vector>

#include "registration/rcs/toolbar_edit.h"

/// Edits customization files from text to text, for tests and fuzzers.
namespace kestrune_tests {

using ExtraRecordKinds = std::vector<std::string>;

/// Holds the result of an edit.
struct Edited {
  bool success = false;
  std::string text;
  std::wstring error;
};

/// Parses the text strictly and edits it.
inline Edited EditText(std::string text, const altium_registration::Spec& spec, bool install,
                       const ExtraRecordKinds& extra_record_kinds = {}) {
  altium_registration::Rcs rcs;
  Edited edited;
  edited.success =
      altium_registration::Rcs::Parse(std::move(text), {.extra_record_kinds = extra_record_kinds},
                                      rcs, edited.error) &&
      altium_registration::EditRcs(rcs, spec, install, edited.text, edited.error);
  return edited;
}

/// Parses the text strictly and validates it.
inline bool ValidateText(std::string text, const altium_registration::Spec& spec,
                         bool expect_installed, std::wstring& error,
                         const ExtraRecordKinds& extra_record_kinds = {}) {
  altium_registration::Rcs rcs;
  return altium_registration::Rcs::Parse(std::move(text),
                                         {.extra_record_kinds = extra_record_kinds}, rcs, error) &&
         altium_registration::ValidateRcs(rcs, spec, expect_installed, error);
}

}  // namespace kestrune_tests
