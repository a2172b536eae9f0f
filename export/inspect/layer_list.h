#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "export/inspect/matrix.h"

namespace kestrune {

/// What is known of the files `features` of a layer.
enum class FeaturesSize {
  /// No step has a folder for the layer.
  FolderAbsent,
  /// Only a file that is packed once more (`features.Z`), whose unpacked size is written nowhere.
  PackedTwice,
  /// The size is known; 0 when the folder has no such file.
  Known,
};

/// Whether there is an object in a layer.
enum class LayerContent { None, Some, Unknown };

/// A row of the matrix, and what the archive holds of it.
struct InspectedLayer {
  MatrixRow row = {};
  FeaturesSize features = FeaturesSize::FolderAbsent;
  /// Unpacked, in bytes, over all steps.
  std::uint64_t size = 0;
  LayerContent content = LayerContent::None;
};

/// What was read from an archive.
struct LayerList {
  std::size_t steps = 0;
  std::vector<InspectedLayer> layers;
};

/// Returns the list as the script reads it: UTF-8, one fact a line, with a last line "END". In
/// names
/// "%", "|", control characters and bytes that are no UTF-8 are written as "%" and two hexadecimal
/// digits.
std::string WriteLayerList(const LayerList& list);

/// Returns what stands in place of the list when there is none.
std::string WriteInspectionFailure(std::wstring_view reason);

/// Returns the counts for the log: "Steps=1 Layers=16 SIGNAL=2 ...", each type of the format in the
/// order of its first row, all others last as OTHER.
std::wstring SummarizeLayers(const LayerList& list);

}  // namespace kestrune
