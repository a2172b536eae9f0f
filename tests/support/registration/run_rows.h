#pragma once

#include <string_view>
#include <vector>

#include "tests/support/registration/registration_run.h"

namespace altium_registration {

/// A scenario with its end state and message, as in run_rows.inc:
/// "scenario -> file | list | working files | message". The file is followed by the
/// differences of its security from the original one; of the message, [done] is "Commit validated;
/// file and registry updated.", [complete] " Rollback complete (or no owned writes).", [key] "
/// Registry recovery blocked:", [file] " File recovery blocked:" and [manual] " MANUAL RECOVERY
/// REQUIRED; backups retained.".
struct RunRow {
  std::string_view text;
  Scenario scenario;
  std::string_view line;
};

/// Returns the rows in the order of the file, which is sorted.
std::vector<RunRow> RunRows();

}  // namespace altium_registration
