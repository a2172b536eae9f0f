#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace kestrune {

/// What a board uses, as its used-layer manifest tells it.
struct UsedLayers {
  /// Names of plot fields that must be switched on, ASCII letters in lower case.
  std::unordered_set<std::string> plot_keys;
  /// Display names of layers that must be switched on, normalised (NormalisedLayerName).
  std::unordered_set<std::string> layer_names;
};

/// A layer's display name reduced to its ASCII letters and digits, in lower case, so that
/// "Top Layer", "TOP_LAYER" and "top-layer" are one layer.
std::string NormalisedLayerName(std::string_view name);

/// Reads a manifest of `PlotKey=...` and `LayerName=...` lines. Other keys and lines without "="
/// are ignored; blanks, tabs and line ends around keys and values do not count. The bytes are
/// never decoded, so a byte order mark belongs to the first key.
UsedLayers ParseUsedLayers(std::string_view manifest);

/// A plot field whose value was changed.
struct PlotFieldChange {
  /// The field's key, bytes as they stand in the output job.
  std::string field;
  bool enabled = false;

  friend bool operator==(const PlotFieldChange&, const PlotFieldChange&) = default;
};

/// A new configuration line for an output job: bytes [begin, end) become `value`, and every other
/// byte of the job stays.
struct LayerSelection {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string value;
  /// In the order of the fields.
  std::vector<PlotFieldChange> changes;
};

/// Switches the plot fields of the job's first "Configuration1_Item1=" line so that exactly the
/// used layers are on. Nothing when the job has no such line.
///
/// When two `Plot_V7_..._name` fields name the same plot field, the last one counts.
std::optional<LayerSelection> SelectLayers(std::string_view out_job, const UsedLayers& used);

}  // namespace kestrune
