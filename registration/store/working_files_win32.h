#pragma once

#include "common/system/system_calls_win32.h"

namespace altium_registration {

/// Names the working files of a run, which are in the folder of DXP.RCS. All names but
/// "DXP.RCS.recovery" contain the run's process ID and start time, so that another run can
/// recognise the files of a killed run. Commit and rollback use different names for the displaced
/// file, since a pending deletion blocks its name.
struct WorkingFiles {
  /// The replacement file, with the new text: "DXP.RCS.odbpp-<run>.tmp".
  kestrune::ExtendedPath replacement;
  /// The displaced file of the commit: "DXP.RCS.odbpp-<run>.old.tmp".
  kestrune::ExtendedPath displaced;
  /// The displaced file of the rollback: "DXP.RCS.odbpp-<run>.undone.old.tmp".
  kestrune::ExtendedPath undone;
  /// The recovery file, with the saved text: "DXP.RCS.recovery".
  kestrune::ExtendedPath recovery;
  /// The recovery file when that name is blocked: "DXP.RCS.odbpp-<run>.recovery.old.tmp".
  kestrune::ExtendedPath spare_recovery;
};

/// Returns whether the path exists; false also when its stat fails.
bool Exists(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path);

/// Returns the names of the working files for a new run of this process.
WorkingFiles NameWorkingFiles(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& rcs_path);

/// Clears the working files that killed runs left beside DXP.RCS. Deletes replacement files. Moves
/// displaced files to `directory`, since one may be the user's only copy, unless DXP.RCS is
/// missing. Leaves files that cannot be cleared to the next run.
void ClearLeftovers(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& rcs_path,
                    const kestrune::ExtendedPath& directory);

}  // namespace altium_registration
