#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kestrune {

/// Holds the arguments of `--finalize` and `--finalize-auto`, which deliver the host's archive.
struct FinalizeCommand {
  /// Absent for the archive that the host wrote for the temporary project.
  std::optional<std::wstring> native_zip;
  std::wstring source_pcb;
  /// The board's spacing in ten-thousandths of a mil; present only when it is a positive number.
  std::optional<std::int64_t> space;
};

/// Lists the exit codes of `--finalize` and `--finalize-auto`.
enum FinalizeCode : int {
  kDelivered = 0,
  /// The local application data folder or, when the path of the archive was not given, Public
  /// Documents is not available.
  kFinalizeNoFolder = 2,
  kNotOnClipboard = 3,
  kFinalizeFailed = 4,
};

}  // namespace kestrune
