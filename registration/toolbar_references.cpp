#include "registration/toolbar_references.h"

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
  template <typename Action>
  void ForEach(RcsKind kind, const Action& action) {
    const auto& records = document_.records();
    for (std::uint32_t place = 0; place < records.size(); ++place) {
      if (records[place].kind == kind) {
        action(place);
      }
    }
  }

  RcsText Attribute(std::uint32_t place, std::string_view name) const {
    return document_.Attribute(document_.records()[place], name);
  }

  void FindCommand(std::uint32_t place) {
    if (kestrune::LowerAscii(Attribute(place, "Command").ToString()) == kRunScript &&
        Normalised(Attribute(place, "Params").ToString()) == parameters_) {
      found_.roles[place] = RcsRole::kCommand;
      ++found_.commands;
    }
  }

  void FindLink(std::uint32_t place) {
    const std::uint32_t target = document_.FindIdentifier(Attribute(place, "PLID"));
    if (target == kNoRcsItem || found_.RoleOf(target) != RcsRole::kCommand) {
      return;
    }
    const std::uint32_t parent = document_.records()[place].parent;
    const bool placed =
        parent != kNoRcsItem && document_.records()[parent].kind == RcsKind::kInsertion;
    found_.roles[place] = placed ? RcsRole::kPlacedLink : RcsRole::kLink;
    found_.placed_links += placed ? 1 : 0;
  }

  void FindSuppression(std::uint32_t place) {
    const std::uint32_t link = document_.FindIdentifier(Attribute(place, "DeleteID"));
    if (link == kNoRcsItem || found_.RoleOf(link) != RcsRole::kPlacedLink) {
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
