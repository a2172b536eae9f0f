#pragma once

#include <string>

#include "registration/transaction/system_calls_win32.h"

namespace altium_registration {

/// The files that a run keeps beside DXP.RCS while it works. The first two carry the run's process
/// (number and start time) in their names, so that another run can tell a dead run's from a live
/// one's. All paths are in extended form.
struct WorkingFiles {
  /// The new text before it is put in place: "DXP.RCS.odbpp-<run>.tmp".
  std::wstring temporary;
  /// The file that a replacement moved away: "DXP.RCS.odbpp-<run>.old.tmp".
  std::wstring displaced;
  /// The saved text before it is put back: "DXP.RCS.recovery".
  std::wstring recovery;
};

/// Whether something stands at a path in extended form; false also where that cannot be asked.
bool Exists(const std::wstring& extended_path);

/// Names the files of a new run of this process.
WorkingFiles NameWorkingFiles(const std::wstring& extended_rcs_path);

/// Clears what dead runs left beside DXP.RCS. A temporary file is deleted. A displaced file may
/// hold the user's only copy of something: it is moved to `directory`, and left where it is while
/// DXP.RCS is missing. What cannot be cleared stays for the next run.
void ClearLeftovers(SystemCalls& calls, const std::wstring& extended_rcs_path,
                    const std::wstring& directory);

}  // namespace altium_registration
