#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/rcs.h"

namespace altium_registration {

/// Lists the roles of a record for the command that runs a script project.
enum class RcsRole : std::uint8_t {
  kForeign,
  /// A PL record that runs the script.
  kCommand,
  /// A Link to such a command that is not a direct child of an Insertion.
  kLink,
  /// A Link to such a command that is a direct child of an Insertion.
  kPlacedLink,
  /// A Deletion that hides such a placed link.
  kSuppression,
  /// An Insertion with such placed links and no other children.
  kPlacement
};

/// Holds the role of each record of a file, by its index in Rcs::nodes(), and the numbers of
/// records of some roles.
struct RcsReferences {
  std::vector<RcsRole> roles;
  /// The indexes of the links, placed or not, in file order.
  std::vector<std::uint32_t> links;
  std::uint32_t commands = 0;
  std::uint32_t placed_links = 0;
  std::uint32_t suppressions = 0;

  RcsRole RoleOf(std::uint32_t index) const { return roles[index]; }
  bool IsOwned(std::uint32_t index) const { return roles[index] != RcsRole::kForeign; }
  bool IsLink(std::uint32_t index) const {
    return roles[index] == RcsRole::kLink || roles[index] == RcsRole::kPlacedLink;
  }
};

/// Finds all records in a strictly parsed file that belong to the script project with this path. A
/// command belongs to it when it is the host's "run script" command and its parameters name the
/// project and our procedure, ignoring ASCII case and the direction of slashes.
RcsReferences FindReferences(const Rcs& rcs, std::string_view script_project_path);

/// Returns the parameters with which the host's "run script" command starts the export.
std::string ScriptParameters(std::string_view script_project_path);

}  // namespace altium_registration
