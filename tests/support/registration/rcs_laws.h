#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/toolbar_edit.h"
#include "tests/support/registration/rcs_edit.h"
#include "tests/support/registration/rcs_model.h"

/// Checks laws of customization files that hold for any text. The unit tests check their examples
/// with them, the fuzzers random texts.
namespace rcs_laws {

/// Returns whether a message has the bytes of a text, each as one character.
inline bool SameText(const std::wstring& wide, const std::string& bytes) {
  return std::ranges::equal(wide, bytes, [](wchar_t unit, char byte) {
    return unit == static_cast<wchar_t>(static_cast<unsigned char>(byte));
  });
}

inline std::string_view KindName(altium_registration::NodeKind kind) {
  constexpr std::array<std::string_view, 6> kNames = {"Tree",      "PL",       "Link",
                                                      "Insertion", "Deletion", "Separator"};
  const auto index = static_cast<std::size_t>(kind);
  // cppcheck-suppress returnDanglingLifetime; the views are of literals
  return index < kNames.size() ? kNames[index] : "Change";
}

/// Returns whether the records from `place` on are the given ones, and sets `place` to the next.
inline bool SameRecords(const altium_registration::Rcs& rcs, const rcs_model::Nodes& nodes,
                        unsigned depth, std::size_t& place) {
  return std::ranges::all_of(nodes, [&](const rcs_model::Node& node) {
    if (place == rcs.nodes().size()) {
      return false;
    }
    const altium_registration::Node& record = rcs.nodes()[place++];
    return KindName(record.kind) == node.kind && record.depth == depth &&
           record.start == node.start && record.end == node.end &&
           record.EndKeyword() == node.end_keyword &&
           rcs.Identifier(record).ToString() == node.identifier &&
           std::ranges::all_of(node.attributes,
                               [&](const auto& attribute) {
                                 return rcs.Attribute(record, attribute.first).ToString() ==
                                        attribute.second;
                               }) &&
           SameRecords(rcs, node.children, depth + 1, place) && record.subtree_end == place;
  });
}

/// Returns how parsing a text differs from the naive parser; empty when it does not. The only extra
/// record kind may be "Change".
inline std::string BrokenParseLaw(const std::string& raw,
                                  const altium_registration::RcsOptions& options = {}) {
  altium_registration::Rcs rcs;
  std::wstring error;
  const bool parsed = altium_registration::Rcs::Parse(std::string(raw), options, rcs, error);
  try {
    std::size_t place = 0;
    const rcs_model::Nodes nodes =
        rcs_model::Parse(raw, options.strict, options.extra_record_kinds);
    const bool same = parsed && SameRecords(rcs, nodes, 0, place) && place == rcs.nodes().size();
    return same ? "" : parsed ? "has other records" : "is refused";
  } catch (const rcs_model::Refusal& refusal) {
    return parsed ? "is accepted" : SameText(error, refusal.text) ? "" : "has another error";
  }
}

/// Returns whether validating a text has the outcome of the naive implementation.
inline bool ValidatesAlike(const std::string& text, const altium_registration::Spec& spec,
                           bool expect_installed, const rcs_model::Kinds& extra) {
  std::wstring error;
  const bool valid = kestrune_tests::ValidateText(text, spec, expect_installed, error, extra);
  try {
    rcs_model::Validate(text, spec, expect_installed, extra);
    return valid;
  } catch (const rcs_model::Refusal& refusal) {
    return !valid && SameText(error, refusal.text);
  }
}

/// Returns every record that is not ours as text, with its position in the tree, but not the
/// top-level custom tree, which may be ours. A link to `command`, the identifier that installing
/// gives to our command, counts as ours.
inline std::vector<std::string> ForeignRecords(const std::string& text,
                                               const altium_registration::Spec& spec,
                                               const rcs_model::Kinds& extra,
                                               const std::string& command) {
  const rcs_model::Nodes nodes = rcs_model::Parse(text, true, extra);
  const rcs_model::References references = rcs_model::FindAll(nodes, spec);
  std::vector<std::string> records;
  const auto collect = [&](const auto& self, const rcs_model::Nodes& level,
                           const std::string& path) -> void {
    for (const rcs_model::Node& node : level) {
      const bool adopted = node.kind == "Link" && node.Value("PLID") == command;
      if (adopted || rcs_model::Owned(node, references)) {
        continue;
      }
      std::string record = path + "/" + node.kind + " " + node.identifier;
      self(self, node.children, record);
      for (const auto& [name, value] : node.attributes) {
        record += "|" + name + "=" + value;
      }
      if (!record.starts_with("/Tree PCBCustom|")) {
        records.push_back(record);
      }
    }
  };
  collect(collect, nodes, "");
  return records;
}

/// Returns whether `shorter` is a subsequence of `longer`.
inline bool IsSubsequence(const std::string& shorter, const std::string& longer) {
  std::size_t at = 0;
  for (const char byte : longer) {
    at += at < shorter.size() && shorter[at] == byte ? 1U : 0U;
  }
  return at == shorter.size();
}

/// Returns the law that the installed text breaks; empty when it breaks none.
inline std::string BrokenInstallLaw(const std::string& text, const std::string& installed,
                                    const altium_registration::Spec& spec,
                                    const rcs_model::Kinds& extra) {
  const kestrune_tests::Edited removed = kestrune_tests::EditText(installed, spec, false, extra);
  std::wstring error;
  if (!removed.success || !kestrune_tests::ValidateText(removed.text, spec, false, error, extra)) {
    return "an installed button can be removed";
  }
  const std::string command =
      *rcs_model::FindAll(rcs_model::Parse(installed, true, extra), spec).commands.begin();
  const std::vector<std::string> foreign = ForeignRecords(text, spec, extra, command);
  if (ForeignRecords(installed, spec, extra, command) != foreign) {
    return "installing keeps the foreign records";
  }
  if (ForeignRecords(removed.text, spec, extra, command) != foreign) {
    return "removing keeps the foreign records";
  }
  const rcs_model::Nodes nodes = rcs_model::Parse(text, true, extra);
  const std::string kept = rcs_model::Cut(text, nodes, rcs_model::FindAll(nodes, spec));
  return installed == text || IsSubsequence(kept, installed)
             ? ""
             : "installing keeps the other bytes in order";
}

/// Returns the law of editing and validating that a text breaks; empty when it breaks none.
inline std::string BrokenEditLaw(const std::string& text, const altium_registration::Spec& spec,
                                 bool install, const rcs_model::Kinds& extra = {}) {
  const kestrune_tests::Edited edited = kestrune_tests::EditText(text, spec, install, extra);
  const rcs_model::Outcome expected = rcs_model::Edit(text, spec, install, extra);
  if (!ValidatesAlike(text, spec, true, extra) || !ValidatesAlike(text, spec, false, extra)) {
    return "validation agrees with the naive one";
  }
  if (edited.success != expected.success || !SameText(edited.error, expected.error) ||
      (edited.success && edited.text != expected.text)) {
    return "the edit agrees with the naive one";
  }
  if (!edited.success) {
    return "";
  }
  std::wstring error;
  if (!kestrune_tests::ValidateText(edited.text, spec, install, error, extra)) {
    return "success validates";
  }
  const kestrune_tests::Edited again = kestrune_tests::EditText(edited.text, spec, install, extra);
  if (!again.success || again.text != edited.text) {
    return "a second edit changes nothing";
  }
  return install ? BrokenInstallLaw(text, edited.text, spec, extra) : "";
}

}  // namespace rcs_laws
