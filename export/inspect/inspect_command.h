#pragma once

#include <string>

namespace kestrune {

/// Holds the arguments of `--inspect`, which lists the layers of an ODB++ archive.
struct InspectCommand {
  std::wstring archive;
  /// Where the script reads the list, or the reason why there is none.
  std::wstring result_path;
};

/// Lists the exit codes of `--inspect`.
enum InspectCode : int {
  kInspected = 0,
  kInspectArchiveMissing = 2,
  /// The archive exists but cannot be opened or read, or is not an ODB++ archive.
  kInspectArchiveUnreadable = 3,
  kInspectResultNotWritten = 4,
};

}  // namespace kestrune
