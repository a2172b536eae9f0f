#pragma once

#include <optional>
#include <string>

namespace kestrune {

/// `--prepare`: build the throw-away project around a board.
struct PrepareCommand {
  std::wstring source_pcb;
  std::wstring dependency_list;
  std::wstring used_layer_manifest;
  /// Where the outcome is published for the script; absent when it did not ask.
  std::optional<std::wstring> status_path;
};

/// Exit codes of `--prepare`.
enum PrepareCode : int {
  kPrepared = 0,
  kPrepareNoLocalAppData = 2,
  kPrepareNoPublicDocuments = 3,
  kPrepareFailed = 4,
  kPrepareMissingDependency = 6,
  kPrepareNameCollision = 7,
  kPrepareLayerSelectionFailed = 8,
  /// A source was refused and nothing was touched.
  kPrepareRejected = 9,
  kPrepareStatusNotPublished = 10,
};

}  // namespace kestrune
