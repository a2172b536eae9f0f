#include "registration/rcs/toolbar_edit.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>

#include "registration/rcs/toolbar_references.h"

namespace altium_registration {
namespace {

constexpr std::string_view kCustomTree = "PCBCustom";

/// Returns the number of our links among the descendants of a record.
std::ptrdiff_t LinksBelow(const Rcs& rcs, const RcsReferences& references, std::uint32_t index) {
  const auto& links = references.links;
  return std::ranges::lower_bound(links, rcs.nodes()[index].subtree_end) -
         std::ranges::upper_bound(links, index);
}

std::ptrdiff_t CountCustomLinks(const Rcs& rcs, const RcsReferences& references) {
  const std::uint32_t tree = rcs.FindIdentifier(kCustomTree);
  return tree != kNoItem && rcs.nodes()[tree].kind == NodeKind::kTree
             ? LinksBelow(rcs, references, tree)
             : 0;
}

/// Returns the number of our links that have an Insertion at the button's place as an ancestor.
std::ptrdiff_t CountToolbarLinks(const Rcs& rcs, const RcsReferences& references,
                                 const Spec& spec) {
  std::ptrdiff_t count = 0;
  for (std::uint32_t index = 0; index < rcs.nodes().size();) {
    const Node& node = rcs.nodes()[index];
    const std::ptrdiff_t links = LinksBelow(rcs, references, index);
    const bool at_place = links != 0 && node.kind == NodeKind::kInsertion &&
                          rcs.Attribute(node, "TargetID") == spec.anchor_target &&
                          rcs.Attribute(node, "RefID0") == spec.anchor_reference;
    count += at_place ? links : 0;
    index = at_place || links == 0 ? node.subtree_end : index + 1;
  }
  return count;
}

bool IsInstalled(const Rcs& rcs, const RcsReferences& references, const Spec& spec) {
  return references.commands == 1 && references.placed_links == 1 && references.suppressions == 0 &&
         CountCustomLinks(rcs, references) == 1 && CountToolbarLinks(rcs, references, spec) == 1;
}

bool CommandsLookAs(const Rcs& rcs, const RcsReferences& references, const Spec& spec) {
  for (std::uint32_t index = 0; index < references.roles.size(); ++index) {
    const Node& node = rcs.nodes()[index];
    if (references.RoleOf(index) == RcsRole::kCommand &&
        !(rcs.Attribute(node, "Image") == spec.image_path &&
          rcs.Attribute(node, "Description") == spec.description)) {
      return false;
    }
  }
  return true;
}

/// Returns whether no edit is needed.
bool IsAsWanted(const Rcs& rcs, const RcsReferences& references, const Spec& spec, bool install) {
  return install ? IsInstalled(rcs, references, spec) && CommandsLookAs(rcs, references, spec)
                 : references.commands == 0;
}

std::string CommandBase(const Rcs& rcs, const RcsReferences& references) {
  if (references.commands == 1) {
    const auto command =
        std::find(references.roles.begin(), references.roles.end(), RcsRole::kCommand);
    const auto index = static_cast<std::size_t>(command - references.roles.begin());
    return rcs.Identifier(rcs.nodes()[index]).ToString();
  }
  return "PLKestrune";
}

/// Calls `action` for each piece of the bytes from `begin` to `end` between the owned records, each
/// of which must be entirely inside or outside that range. The pieces include the white space
/// around them.
template <typename Action>
void ForEachForeignPiece(const Rcs& rcs, const RcsReferences& references, std::size_t begin,
                         std::size_t end, const Action& action) {
  const std::string_view text = rcs.text();
  const auto& nodes = rcs.nodes();
  std::size_t kept = begin;
  for (std::uint32_t index = 0; index < nodes.size() && nodes[index].start < end;) {
    if (nodes[index].start < begin || !references.IsOwned(index)) {
      ++index;
      continue;
    }
    action(text.substr(kept, nodes[index].start - kept));
    kept = nodes[index].end;
    index = nodes[index].subtree_end;
  }
  action(text.substr(kept, end - kept));
}

/// Appends the bytes from `begin` to `end` without the owned records.
void AppendForeign(const Rcs& rcs, const RcsReferences& references, std::size_t begin,
                   std::size_t end, std::string& text) {
  ForEachForeignPiece(rcs, references, begin, end, [&text](std::string_view piece) {
    if (text.ends_with(kRcsQuote) && piece.starts_with(kRcsQuote)) {
      // Otherwise two quoted texts that only the removed record separated would merge.
      text.push_back(' ');
    }
    text.append(piece);
  });
}

/// Generates identifiers that no kept or added record uses.
class UniqueNames {
 public:
  UniqueNames(const Rcs& rcs, const RcsReferences& references)
      : rcs_(rcs), references_(references) {}

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
    const std::uint32_t index = rcs_.FindIdentifier(name);
    return (index != kNoItem && !references_.IsOwned(index)) ||
           std::find(taken_.begin(), taken_.end(), name) != taken_.end();
  }

  const Rcs& rcs_;
  const RcsReferences& references_;
  std::vector<std::string> taken_;
};

/// Returns the line end of the text without the owned records.
std::string LineSeparator(const Rcs& rcs, const RcsReferences& references) {
  bool has_lf = false;
  bool has_cr_lf = false;
  bool after_cr = false;
  ForEachForeignPiece(rcs, references, 0, rcs.text().size(), [&](std::string_view piece) {
    if (has_cr_lf || piece.empty()) {
      return;
    }
    has_lf = has_lf || piece.find('\n') != std::string_view::npos;
    has_cr_lf = (after_cr && piece.front() == '\n') || piece.find("\r\n") != std::string_view::npos;
    after_cr = piece.back() == '\r';
  });
  return has_lf && !has_cr_lf ? "\n" : "\r\n";
}

/// Returns the top-level custom tree's closing "End", or the text's end when there is no such tree.
std::size_t CustomTreeEnd(const Rcs& rcs) {
  const std::uint32_t index = rcs.FindIdentifier(kCustomTree);
  if (index != kNoItem) {
    const Node& node = rcs.nodes()[index];
    if (node.kind == NodeKind::kTree && node.depth == 0) {
      return node.EndKeyword();
    }
  }
  return rcs.text().size();
}

std::string WithoutButton(const Rcs& rcs, const RcsReferences& references) {
  std::string text;
  text.reserve(rcs.text().size());
  AppendForeign(rcs, references, 0, rcs.text().size(), text);
  return text;
}

/// Holds the identifiers of the button's four records, in the order in which they are generated.
struct ButtonNames {
  std::string command;
  std::string custom_link;
  std::string insertion;
  std::string toolbar_link;
};

ButtonNames NamesForButton(const Rcs& rcs, const RcsReferences& references) {
  UniqueNames names(rcs, references);
  return {names.Take(CommandBase(rcs, references)), names.Take("KestruneCommandLink"),
          names.Take("KestruneToolbar"), names.Take("KestruneToolbarLink")};
}

std::string LinkLine(const std::string& identifier, const std::string& command,
                     const std::string& separator) {
  return "    Link " + identifier + " PLID=" + Quote(command) + " End" + separator;
}

void EndLine(const std::string& separator, std::string& text) {
  if (!text.ends_with('\n')) {
    text += separator;
  }
}

/// Appends the command and its placement on the toolbar.
void AppendCommand(const Spec& spec, const ButtonNames& names, const std::string& separator,
                   std::string& text) {
  EndLine(separator, text);
  text += "PL " + names.command + " Command='ScriptingSystem:RunScript' Params=" +
          Quote(ScriptParameters(spec.script_project_path)) +
          " Caption='Kestrune' Image=" + Quote(spec.image_path) +
          " Description=" + Quote(spec.description) + " DefaultChecked=0 End" + separator;
  text += "Insertion " + names.insertion + " TargetID=" + Quote(spec.anchor_target) +
          " RefID0=" + Quote(spec.anchor_reference) + separator +
          LinkLine(names.toolbar_link, names.command, separator) + "End" + separator;
}

/// Returns the text with all records of the button removed and its four records added.
std::string WithButton(const Rcs& rcs, const RcsReferences& references, const Spec& spec) {
  constexpr std::size_t kRoomForButton = 4096;
  const ButtonNames names = NamesForButton(rcs, references);
  const std::string separator = LineSeparator(rcs, references);
  const std::string custom_line = LinkLine(names.custom_link, names.command, separator);
  const std::size_t tree_end = CustomTreeEnd(rcs);
  std::string text;
  text.reserve(rcs.text().size() + kRoomForButton);
  AppendForeign(rcs, references, 0, tree_end, text);
  if (tree_end != rcs.text().size()) {
    text += separator + custom_line;
    AppendForeign(rcs, references, tree_end, rcs.text().size(), text);
  } else {
    if (!text.empty()) {
      EndLine(separator, text);
    }
    text += "Tree PCBCustom Caption='[Custom]' TopLevel='True'" + separator + custom_line + "End" +
            separator;
  }
  AppendCommand(spec, names, separator, text);
  return text;
}

/// Returns whether the path contains a character that would end the command's parameters or its
/// line.
bool HoldsUnsafeCharacter(const Spec& spec) {
  const std::string& path = spec.script_project_path;
  for (std::size_t at = 0; at < path.size(); ++at) {
    if (spec.is_lead_byte != nullptr && spec.is_lead_byte(path[at])) {
      ++at;
    } else if (path[at] == '\r' || path[at] == '\n' || path[at] == '|') {
      return true;
    }
  }
  return false;
}

/// Returns why the button cannot be registered; null when it can.
const wchar_t* RefusalOf(const Spec& spec, bool install) {
  if (spec.script_project_path.empty() || HoldsUnsafeCharacter(spec)) {
    return L"Unsafe script project path.";
  }
  if (install && (spec.anchor_target.empty() || spec.anchor_reference.empty())) {
    return L"No validated toolbar anchor; manual registration required.";
  }
  return nullptr;
}

}  // namespace

bool EditRcs(const Rcs& rcs, const Spec& spec, bool install, std::string& new_text,
             std::wstring& error) {
  if (const wchar_t* const refusal = RefusalOf(spec, install)) {
    error = refusal;
    return false;
  }
  const RcsReferences references = FindReferences(rcs, spec.script_project_path);
  if (IsAsWanted(rcs, references, spec, install)) {
    new_text = rcs.text();
    return true;
  }
  new_text = install ? WithButton(rcs, references, spec) : WithoutButton(rcs, references);
  Rcs edited;
  if (!Rcs::Parse(std::move(new_text), rcs.options(), edited, error)) {
    return false;
  }
  const bool valid = ValidateRcs(edited, spec, install, error);
  new_text = std::move(edited).TakeText();
  return valid;
}

bool ValidateRcs(const Rcs& rcs, const Spec& spec, bool expect_installed, std::wstring& error) {
  const RcsReferences references = FindReferences(rcs, spec.script_project_path);
  if (expect_installed && !IsInstalled(rcs, references, spec)) {
    error = L"Expected one unsuppressed Bridge command, custom link and toolbar placement.";
    return false;
  }
  if (!expect_installed && references.commands != 0) {
    error = L"Bridge command remains.";
    return false;
  }
  return true;
}

bool HasAnchor(std::string_view text, std::string_view tree, std::string_view item,
               const std::vector<std::string>& extra_record_kinds) {
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
  Rcs block;
  std::wstring error;
  if (!Rcs::Parse(std::string(text.substr(start, closing + kClosing.size() - start)),
                  {.strict = false, .extra_record_kinds = extra_record_kinds}, block, error)) {
    return false;
  }
  const std::span inside =
      std::span(block.nodes()).first(block.nodes().front().subtree_end).subspan(1);
  return std::ranges::count_if(
             inside, [&](const Node& node) { return block.Identifier(node) == item; }) == 1;
}

}  // namespace altium_registration
