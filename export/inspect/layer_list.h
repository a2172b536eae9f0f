#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "export/inspect/matrix.h"

namespace kestrune {

/// Lists what is known about the size of a layer's files `features`.
enum class FeaturesSize {
  /// No step has a folder for the layer.
  FolderAbsent,
  /// There is only a compressed file (`features.Z`), whose unpacked size is not recorded.
  PackedTwice,
  /// The size is known; 0 when the folder has no such file.
  Known,
};

/// Lists whether a layer has an object.
enum class LayerContent { None, Some, Unknown };

/// Holds a row of the matrix, and what the archive contains of that layer.
struct InspectedLayer {
  MatrixRow row = {};
  FeaturesSize features = FeaturesSize::FolderAbsent;
  /// Unpacked, in bytes, over all steps.
  std::uint64_t size = 0;
  LayerContent content = LayerContent::None;
};

/// Holds what was read from an archive.
struct LayerList {
  std::size_t steps = 0;
  std::vector<InspectedLayer> layers;
};

/// Returns the list for the script: UTF-8 lines ended by CR LF, which are "VERSION=1", the number
/// of steps, one for each layer, and "END". In names, "%", "|", control characters and bytes that
/// are not UTF-8 are written as "%" and two hexadecimal digits.
std::string WriteLayerList(const LayerList& list);

/// Returns the text for the script when there is no list, with the reason. The form is that of
/// WriteLayerList.
std::string WriteInspectionFailure(std::wstring_view reason);

/// Returns the counts for the log: "Steps=1 Layers=16 SIGNAL=2 ...". The layer types of ODB++ are
/// in the order of their first rows; rows of all other types are counted last, as OTHER.
std::wstring SummarizeLayers(const LayerList& list);

}  // namespace kestrune
