#include "registration/rcs/toolbar_edit.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "common/failure.h"
#include "registration/rcs/toolbar_references.h"

namespace altium_registration {
namespace {

using kestrune::Failure;

constexpr std::string_view kCustomTree = "PCBCustom";

RcsDocument ParseStrictly(std::string_view text, RcsKinds carried_kinds) {
  RcsDocument document;
  std::wstring error;
  if (!RcsDocument::Parse(text, {.strict = true, .carried_kinds = carried_kinds}, document,
                          error)) {
    throw Failure{error};
  }
  return document;
}

/// Whether a record around `place` fulfils the condition.
template <typename Condition>
bool AnyAncestor(const RcsDocument& document, std::uint32_t place, const Condition& condition) {
  const auto& records = document.records();
  for (std::uint32_t i = records[place].parent; i != kNoRcsItem; i = records[i].parent) {
    if (condition(records[i])) {
      return true;
    }
  }
  return false;
}

template <typename Condition>
std::uint32_t CountLinksBelow(const RcsDocument& document, const RcsReferences& references,
                              const Condition& condition) {
  std::uint32_t count = 0;
  for (std::uint32_t place = 0; place < references.roles.size(); ++place) {
    if (references.IsLink(place) && AnyAncestor(document, place, condition)) {
      ++count;
    }
  }
  return count;
}

bool IsInstalled(const RcsDocument& document, const RcsReferences& references, const Spec& spec) {
  if (references.commands != 1 || references.placed_links != 1 || references.suppressions != 0) {
    return false;
  }
  const auto custom_tree = [&](const RcsRecord& record) {
    return record.kind == RcsKind::kTree && document.Identifier(record) == kCustomTree;
  };
  const auto toolbar = [&](const RcsRecord& record) {
    return record.kind == RcsKind::kInsertion &&
           document.Attribute(record, "TargetID") == spec.anchor_target &&
           document.Attribute(record, "RefID0") == spec.anchor_reference;
  };
  return CountLinksBelow(document, references, custom_tree) == 1 &&
         CountLinksBelow(document, references, toolbar) == 1;
}

void RequireState(const RcsDocument& document, const Spec& spec, bool expect_installed) {
  const RcsReferences references = FindReferences(document, spec.script_project_path);
  if (expect_installed && !IsInstalled(document, references, spec)) {
    throw Failure{L"Expected one unsuppressed Bridge command, custom link and toolbar placement."};
  }
  if (!expect_installed && references.commands != 0) {
    throw Failure{L"Bridge command remains."};
  }
}

bool CommandsLookAs(const RcsDocument& document, const RcsReferences& references,
                    const Spec& spec) {
  for (std::uint32_t place = 0; place < references.roles.size(); ++place) {
    const RcsRecord& record = document.records()[place];
    if (references.RoleOf(place) == RcsRole::kCommand &&
        !(document.Attribute(record, "Image") == spec.image_path &&
          document.Attribute(record, "Description") == spec.description)) {
      return false;
    }
  }
  return true;
}

std::string CommandBase(const RcsDocument& document, const RcsReferences& references) {
  if (references.commands == 1) {
    const auto command =
        std::find(references.roles.begin(), references.roles.end(), RcsRole::kCommand);
    const auto place = static_cast<std::size_t>(command - references.roles.begin());
    return document.Identifier(document.records()[place]).ToString();
  }
  return "PLKestrune";
}

bool IsOwned(const RcsReferences& references, std::uint32_t place) {
  return references.RoleOf(place) != RcsRole::kForeign;
}

/// The text without the owned records; white space around them stays.
std::string WithoutOwned(const RcsDocument& document, const RcsReferences& references) {
  const std::string_view raw = document.raw();
  const auto& records = document.records();
  std::string text;
  text.reserve(raw.size());
  std::size_t kept = 0;
  const auto keep_until = [&](std::size_t end) {
    const std::string_view piece = raw.substr(kept, end - kept);
    if (text.ends_with('\'') && piece.starts_with('\'')) {
      // Two quoted texts that only the cut record separated would become one.
      text.push_back(' ');
    }
    text.append(piece);
  };
  for (std::uint32_t place = 0; place < records.size();) {
    if (!IsOwned(references, place)) {
      ++place;
      continue;
    }
    keep_until(records[place].start);
    kept = records[place].end;
    place = records[place].subtree_end;
  }
  keep_until(raw.size());
  return text;
}

/// Gives out identifiers that neither the document nor a record to be added uses.
class UniqueNames {
 public:
  explicit UniqueNames(const RcsDocument& document) : document_(document) {}

  std::string Take(const std::string& base) {
    std::string name = base;
    for (std::uint32_t n = 1; IsUsed(name); ++n) {
      name = base + "_" + std::to_string(n);
    }
    taken_.push_back(name);
    return name;
  }

 private:
  bool IsUsed(const std::string& name) const {
    return document_.FindIdentifier({name, false}) != kNoRcsItem ||
           std::find(taken_.begin(), taken_.end(), name) != taken_.end();
  }

  const RcsDocument& document_;
  std::vector<std::string> taken_;
};

std::string_view LineSeparator(std::string_view text) {
  const bool has_lf = text.find('\n') != std::string_view::npos;
  return has_lf && text.find("\r\n") == std::string_view::npos ? "\n" : "\r\n";
}

/// The top-level custom tree's closing "End", or the text's end when there is no such tree.
std::size_t CustomTreeEnd(const RcsDocument& document) {
  const std::uint32_t place = document.FindIdentifier({kCustomTree, false});
  if (place != kNoRcsItem) {
    const RcsRecord& record = document.records()[place];
    if (record.kind == RcsKind::kTree && record.parent == kNoRcsItem) {
      return record.EndKeyword();
    }
  }
  return document.raw().size();
}

/// Builds the text with the four records of the button added to a document that has none of them.
std::string WithButton(const RcsDocument& document, const Spec& spec,
                       const std::string& command_base) {
  UniqueNames names(document);
  const std::string command = names.Take(command_base);
  const std::string custom_link = names.Take("KestruneCommandLink");
  const std::string insertion = names.Take("KestruneToolbar");
  const std::string toolbar_link = names.Take("KestruneToolbarLink");

  const std::string_view raw = document.raw();
  const std::string separator(LineSeparator(raw));
  const std::string link_tail = " PLID=" + Quote(command) + " End" + separator;
  const std::string custom_line = "    Link " + custom_link + link_tail;
  const auto end_line = [&](std::string& text) {
    if (!text.ends_with('\n')) {
      text += separator;
    }
  };

  const std::size_t tree_end = CustomTreeEnd(document);
  std::string text;
  text.reserve(raw.size() + 1024);
  text.append(raw.substr(0, tree_end));
  if (tree_end != raw.size()) {
    text += separator + custom_line;
    text.append(raw.substr(tree_end));
  } else {
    if (!text.empty()) {
      end_line(text);
    }
    text += "Tree PCBCustom Caption='[Custom]' TopLevel='True'" + separator + custom_line + "End" +
            separator;
  }
  end_line(text);
  text += "PL " + command + " Command='ScriptingSystem:RunScript' Params=" +
          Quote(ScriptParameters(spec.script_project_path)) +
          " Caption='Kestrune' Image=" + Quote(spec.image_path) +
          " Description=" + Quote(spec.description) + " DefaultChecked=0 End" + separator;
  text += "Insertion " + insertion + " TargetID=" + Quote(spec.anchor_target) +
          " RefID0=" + Quote(spec.anchor_reference) + separator + "    Link " + toolbar_link +
          link_tail + "End" + separator;
  return text;
}

void RequireUsable(const Spec& spec, bool install) {
  if (spec.script_project_path.empty() ||
      spec.script_project_path.find_first_of("\r\n|") != std::string::npos) {
    throw Failure{L"Unsafe script project path."};
  }
  if (install && (spec.anchor_target.empty() || spec.anchor_reference.empty())) {
    throw Failure{L"No validated toolbar anchor; manual registration required."};
  }
}

void Edit(std::string_view text, const Spec& spec, bool install, std::string& new_text,
          RcsKinds carried_kinds) {
  RcsDocument document = ParseStrictly(text, carried_kinds);
  RequireUsable(spec, install);
  const RcsReferences references = FindReferences(document, spec.script_project_path);
  if (install && IsInstalled(document, references, spec) &&
      CommandsLookAs(document, references, spec)) {
    new_text = text;
    return;
  }
  const std::string command_base = CommandBase(document, references);
  if (references.commands == 0) {
    new_text = text;
  } else {
    new_text = WithoutOwned(document, references);
    document = ParseStrictly(new_text, carried_kinds);
  }
  if (install) {
    new_text = WithButton(document, spec, command_base);
    document = ParseStrictly(new_text, carried_kinds);
  }
  RequireState(document, spec, install);
}

}  // namespace

bool EditRcs(std::string_view text, const Spec& spec, bool install, std::string& new_text,
             std::wstring& error, RcsKinds carried_kinds) {
  try {
    Edit(text, spec, install, new_text, carried_kinds);
    return true;
  } catch (const Failure& failure) {
    error = failure.text;
    return false;
  }
}

bool ValidateRcs(std::string_view text, const Spec& spec, bool expect_installed,
                 std::wstring& error, RcsKinds carried_kinds) {
  try {
    RequireState(ParseStrictly(text, carried_kinds), spec, expect_installed);
    return true;
  } catch (const Failure& failure) {
    error = failure.text;
    return false;
  }
}

bool HasAnchor(std::string_view text, std::string_view tree, std::string_view item,
               RcsKinds carried_kinds) {
  const std::string opening = "Tree " + std::string(tree) + " ";
  std::size_t start = text.find(opening);
  while (start != std::string_view::npos && start != 0 && text[start - 1] != '\n') {
    start = text.find(opening, start + 1);
  }
  if (start == std::string_view::npos) {
    return false;
  }
  constexpr std::string_view kClosing = "\nEnd";
  const std::size_t closing = text.find(kClosing, start);
  if (closing == std::string_view::npos) {
    return false;
  }
  const std::string_view block = text.substr(start, closing + kClosing.size() - start);
  RcsDocument document;
  std::wstring error;
  if (!RcsDocument::Parse(block, {.strict = false, .carried_kinds = carried_kinds}, document,
                          error)) {
    return false;
  }
  const std::span inside =
      std::span(document.records()).first(document.records().front().subtree_end).subspan(1);
  return std::count_if(inside.begin(), inside.end(), [&](const RcsRecord& record) {
           return document.Identifier(record) == item;
         }) == 1;
}

}  // namespace altium_registration
