#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace kestrune {

/// Holds the layers that a board uses, from its used-layer manifest.
struct UsedLayers {
  /// The names of plot fields that must be switched on, with ASCII letters in lower case.
  std::unordered_set<std::string> plot_keys;
  /// Display names of layers that must be switched on, normalised (NormalisedLayerName).
  std::unordered_set<std::string> layer_names;
};

/// Returns a layer's display name reduced to its ASCII letters and digits, in lower case, so that
/// "Top Layer", "TOP_LAYER" and "top-layer" are equal.
std::string NormalisedLayerName(std::string_view name);

/// Reads a manifest of `PlotKey=...` and `LayerName=...` lines. Other keys and lines without "="
/// are ignored; blanks, tabs and line ends around keys and values are dropped. The bytes are never
/// decoded, so a byte order mark becomes part of the first key.
UsedLayers ParseUsedLayers(std::string_view manifest);

/// Holds a plot field whose value was changed.
struct PlotFieldChange {
  /// The field's key, in the bytes of the output job.
  std::string field;
  bool enabled = false;

  friend bool operator==(const PlotFieldChange&, const PlotFieldChange&) = default;
};

/// Holds a new configuration line for an output job: `value` replaces the bytes [begin, end) of the
/// job.
struct LayerSelection {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::string value;
  /// In the order of the fields.
  std::vector<PlotFieldChange> changes;
};

/// Returns the change of the job's first "Configuration1_Item1=" line after which exactly the plot
/// fields of the used layers are on. Returns nothing when the job has no such line.
///
/// When two `Plot_V7_..._name` fields name the same plot field, the last one counts.
std::optional<LayerSelection> SelectLayers(std::string_view out_job, const UsedLayers& used);

}  // namespace kestrune
