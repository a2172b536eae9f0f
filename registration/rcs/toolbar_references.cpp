#include "registration/rcs/toolbar_references.h"

#include <algorithm>
#include <string>

#include "common/text.h"

namespace altium_registration {
namespace {

constexpr std::string_view kRunScript = "scriptingsystem:runscript";

std::string Normalised(std::string text) {
  std::replace(text.begin(), text.end(), '/', '\\');
  return kestrune::LowerAscii(text);
}

class ReferenceFinder {
 public:
  ReferenceFinder(const RcsDocument& document, std::string_view script_project_path)
      : document_(document), parameters_(Normalised(ScriptParameters(script_project_path))) {
    found_.roles.resize(document.records().size(), RcsRole::kForeign);
  }

  RcsReferences Run() {
    ForEach(RcsKind::kPl, [this](std::uint32_t place) { FindCommand(place); });
    if (found_.commands == 0) {
      return std::move(found_);
    }
    ForEach(RcsKind::kLink, [this](std::uint32_t place) { FindLink(place); });
    ForEach(RcsKind::kDeletion, [this](std::uint32_t place) { FindSuppression(place); });
    ForEach(RcsKind::kInsertion, [this](std::uint32_t place) { FindPlacement(place); });
    return std::move(found_);
  }

 private:
  /// Records of one kind lie some hundred bytes apart in the text, too irregularly for the
  /// processor to foresee: without being told it waits for the memory at each of a large file.
  template <typename Action>
  void ForEach(RcsKind kind, const Action& action) {
    constexpr std::size_t kAhead = 16;
    const auto& records = document_.records();
    for (std::uint32_t place = 0; place < records.size(); ++place) {
      if (place + kAhead < records.size() && records[place + kAhead].kind == kind) {
        document_.PrefetchText(records[place + kAhead]);
      }
      if (records[place].kind == kind) {
        action(place);
      }
    }
  }

  RcsText Attribute(std::uint32_t place, std::string_view name) const {
    return document_.Attribute(document_.records()[place], name);
  }

  /// The one of the records in `index` that has this identifier. An index of our own few records
  /// stays in the processor's cache, which one of all records of a large file does not.
  std::uint32_t Find(const RcsIndex& index, const RcsText& identifier) const {
    return index.Find(identifier.Hash(),
                      [&](std::uint32_t place) { return Identifier(place) == identifier; });
  }

  void Add(RcsIndex& index, std::uint32_t place) const {
    index.Add(Identifier(place).Hash(), place, [](std::uint32_t) { return false; });
  }

  RcsText Identifier(std::uint32_t place) const {
    return document_.Identifier(document_.records()[place]);
  }

  void FindCommand(std::uint32_t place) {
    const RcsText command = Attribute(place, "Command");
    // Most commands are told apart by their length, without a copy.
    if (command.LongestSize() < kRunScript.size() ||
        kestrune::LowerAscii(command.ToString()) != kRunScript ||
        Normalised(Attribute(place, "Params").ToString()) != parameters_) {
      return;
    }
    found_.roles[place] = RcsRole::kCommand;
    ++found_.commands;
    Add(commands_, place);
  }

  void FindLink(std::uint32_t place) {
    if (Find(commands_, Attribute(place, "PLID")) == kNoRcsItem) {
      return;
    }
    const std::uint32_t parent = document_.records()[place].parent;
    const bool placed =
        parent != kNoRcsItem && document_.records()[parent].kind == RcsKind::kInsertion;
    found_.roles[place] = placed ? RcsRole::kPlacedLink : RcsRole::kLink;
    if (placed) {
      ++found_.placed_links;
      Add(placed_links_, place);
    }
  }

  void FindSuppression(std::uint32_t place) {
    const std::uint32_t link = Find(placed_links_, Attribute(place, "DeleteID"));
    if (link == kNoRcsItem) {
      return;
    }
    const std::uint32_t insertion = document_.records()[link].parent;
    if (Attribute(place, "TargetID") == Attribute(insertion, "TargetID")) {
      found_.roles[place] = RcsRole::kSuppression;
      ++found_.suppressions;
    }
  }

  void FindPlacement(std::uint32_t place) {
    const auto& records = document_.records();
    const std::uint32_t end = records[place].subtree_end;
    std::uint32_t child = place + 1;
    while (child < end && found_.RoleOf(child) == RcsRole::kPlacedLink) {
      child = records[child].subtree_end;
    }
    if (child == end && end > place + 1) {
      found_.roles[place] = RcsRole::kPlacement;
    }
  }

  const RcsDocument& document_;
  const std::string parameters_;
  RcsIndex commands_;
  RcsIndex placed_links_;
  RcsReferences found_;
};

}  // namespace

RcsReferences FindReferences(const RcsDocument& document, std::string_view script_project_path) {
  return ReferenceFinder(document, script_project_path).Run();
}

std::string ScriptParameters(std::string_view script_project_path) {
  return "ProjectName=" + std::string(script_project_path) + "|ProcName=Kestrune.pas>RunKestrune";
}

}  // namespace altium_registration
