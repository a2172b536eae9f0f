#include "export/layer_selection.h"

#include <algorithm>
#include <unordered_map>

#include "common/text.h"

namespace kestrune {
namespace {

constexpr std::string_view kConfiguration = "Configuration1_Item1=";
constexpr std::string_view kAddToAllPlots = "AddToAllPlots_";
constexpr std::string_view kPlot = "Plot";
constexpr std::string_view kPlotV7 = "Plot_V7_";
constexpr std::string_view kName = "_name";
/// What every key of a LayerMap begins with: kPlotV7 and kName may share their blank.
constexpr std::string_view kMappedKey = "Plot_V7";

struct Field {
  std::string_view key;
  std::string_view value;
};

/// From the key of a plot field to whether the layer that its name field names is used.
using LayerMap = std::unordered_map<std::string_view, bool>;

bool SplitAtEquals(std::string_view text, Field& field) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    return false;
  }
  field = {text.substr(0, equals), text.substr(equals + 1)};
  return true;
}

/// Calls `visit` with each of the separated parts, empty ones included.
template <class Visit>
void ForEachPart(std::string_view text, char separator, Visit visit) {
  for (;;) {
    const std::size_t end = text.find(separator);
    visit(text.substr(0, end));
    if (end == std::string_view::npos) {
      return;
    }
    text.remove_prefix(end + 1);
  }
}

LayerMap ReadLayerMap(std::string_view configuration, const UsedLayers& used) {
  LayerMap map;
  ForEachPart(configuration, '|', [&](std::string_view part) {
    Field field;
    if (SplitAtEquals(part, field) && field.key.starts_with(kPlotV7) &&
        field.key.ends_with(kName)) {
      field.key.remove_suffix(kName.size());
      map[field.key] = used.layer_names.contains(NormalisedLayerName(field.value));
    }
  });
  return map;
}

/// Whether the field must be on; nothing for a field that is no plot field.
std::optional<bool> WantedState(std::string_view key, const UsedLayers& used, const LayerMap& map) {
  if (key.starts_with(kAddToAllPlots)) {
    return false;
  }
  if (key.starts_with(kPlot) && key.ends_with(kPlot)) {
    return used.plot_keys.contains(LowerAscii(key));
  }
  if (key.starts_with(kMappedKey)) {
    if (const auto found = map.find(key); found != map.end()) {
      return found->second;
    }
  }
  return std::nullopt;
}

}  // namespace

std::string NormalisedLayerName(std::string_view name) {
  std::string normalised;
  for (const char c : name) {
    if (IsAsciiAlphanumeric(c)) {
      normalised.push_back(LowerAscii(c));
    }
  }
  return normalised;
}

UsedLayers ParseUsedLayers(std::string_view manifest) {
  constexpr std::string_view blanks = " \t\r\n";
  UsedLayers used;
  ForEachPart(manifest, '\n', [&](std::string_view line) {
    Field field;
    if (!SplitAtEquals(line, field)) {
      return;
    }
    const std::string_view key = Trim(field.key, blanks);
    const std::string_view value = Trim(field.value, blanks);
    if (key == "PlotKey") {
      used.plot_keys.insert(LowerAscii(value));
    } else if (key == "LayerName") {
      used.layer_names.insert(NormalisedLayerName(value));
    }
  });
  return used;
}

std::optional<LayerSelection> SelectLayers(std::string_view out_job, const UsedLayers& used) {
  const std::size_t found = out_job.find(kConfiguration);
  if (found == std::string_view::npos) {
    return std::nullopt;
  }
  LayerSelection selection;
  selection.begin = found + kConfiguration.size();
  selection.end = std::min(out_job.find_first_of("\r\n", selection.begin), out_job.size());
  const std::string_view old = out_job.substr(selection.begin, selection.end - selection.begin);
  const LayerMap map = ReadLayerMap(old, used);

  ForEachPart(old, '|', [&](std::string_view part) {
    if (part.data() != old.data()) {
      selection.value.push_back('|');
    }
    Field field;
    const std::optional<bool> wanted =
        SplitAtEquals(part, field) ? WantedState(field.key, used, map) : std::nullopt;
    const std::string_view value = wanted.value_or(false) ? "True" : "False";
    if (!wanted || field.value == value) {
      selection.value.append(part);
      return;
    }
    selection.value.append(field.key).append("=").append(value);
    selection.changes.push_back({std::string(field.key), *wanted});
  });
  return selection;
}

}  // namespace kestrune
