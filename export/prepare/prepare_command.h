#pragma once

#include <optional>
#include <string>

namespace kestrune {

/// Holds the arguments of `--prepare`, which builds the temporary project around a board.
struct PrepareCommand {
  std::wstring source_pcb;
  std::wstring dependency_list;
  std::wstring used_layer_manifest;
  /// Where the script reads the outcome; absent when no status was requested.
  std::optional<std::wstring> status_path;
};

/// Lists the exit codes of `--prepare`.
enum PrepareCode : int {
  kPrepared = 0,
  kPrepareNoLocalAppData = 2,
  kPrepareNoPublicDocuments = 3,
  kPrepareFailed = 4,
  kPrepareMissingDependency = 6,
  kPrepareNameCollision = 7,
  kPrepareLayerSelectionFailed = 8,
  /// A source was rejected; nothing was changed.
  kPrepareRejected = 9,
  kPrepareStatusNotPublished = 10,
};

}  // namespace kestrune
