#pragma once

#include <string>

namespace kestrune {

/// `--inspect`: list the layers that an ODB++ archive holds.
struct InspectCommand {
  std::wstring archive;
  /// Where the list, or the reason why there is none, is left for the script.
  std::wstring result_path;
};

/// Exit codes of `--inspect`.
enum InspectCode : int {
  kInspected = 0,
  kInspectArchiveMissing = 2,
  /// The archive is there, but cannot be opened or read, or it is no ODB++ archive.
  kInspectArchiveUnreadable = 3,
  kInspectResultNotWritten = 4,
};

}  // namespace kestrune
