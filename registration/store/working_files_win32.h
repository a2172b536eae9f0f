#pragma once

#include "common/system/system_calls_win32.h"

namespace altium_registration {

/// The files that a run keeps beside DXP.RCS while it works. All names but "DXP.RCS.recovery" carry
/// the run's process (number and start time), so that another run can tell a dead run's from a live
/// one's. Commit and rollback have displaced names of their own: a deletion that another program's
/// handle delays blocks its name.
struct WorkingFiles {
  /// The new text before it is put in place: "DXP.RCS.odbpp-<run>.tmp".
  kestrune::ExtendedPath temporary;
  /// The file that the commit moved away: "DXP.RCS.odbpp-<run>.old.tmp".
  kestrune::ExtendedPath displaced;
  /// The file that the rollback moved away: "DXP.RCS.odbpp-<run>.undone.old.tmp".
  kestrune::ExtendedPath undone;
  /// The saved text before it is put back: "DXP.RCS.recovery".
  kestrune::ExtendedPath recovery;
  /// The same where something is in the way of that name: "DXP.RCS.odbpp-<run>.recovery.old.tmp".
  kestrune::ExtendedPath spare_recovery;
};

/// Whether something is at the path; false also where that cannot be asked.
bool Exists(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path);

/// Names the files of a new run of this process.
WorkingFiles NameWorkingFiles(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& rcs_path);

/// Clears what dead runs left beside DXP.RCS. A temporary file is deleted. A displaced file may
/// hold the user's only copy of something: it is moved to `directory`, and left where it is while
/// DXP.RCS is missing. What cannot be cleared stays for the next run.
void ClearLeftovers(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& rcs_path,
                    const kestrune::ExtendedPath& directory);

}  // namespace altium_registration
