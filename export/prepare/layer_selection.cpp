#include "export/prepare/layer_selection.h"

#include <algorithm>
#include <utility>

#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::string_view kConfiguration = "Configuration1_Item1=";
constexpr std::string_view kAddToAllPlots = "AddToAllPlots_";
constexpr std::string_view kPlot = "Plot";
constexpr std::string_view kPlotV7 = "Plot_V7_";
constexpr std::string_view kName = "_name";
/// The prefix of every key of a LayerMap. It lacks the "_" of kPlotV7, since the field
/// "Plot_V7_name" has the key "Plot_V7".
constexpr std::string_view kMappedKey = "Plot_V7";

struct Field {
  std::string_view key;
  std::string_view value;
};

bool SplitAtEquals(std::string_view text, Field& field) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    return false;
  }
  field = {text.substr(0, equals), text.substr(equals + 1)};
  return true;
}

/// Returns the text up to its first carriage return or line feed.
std::string_view FirstLine(std::string_view text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  return line.substr(0, line.find('\r'));
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

void NormaliseLayerName(std::string_view name, std::string& normalised) {
  normalised.clear();
  for (const char c : name) {
    if (IsAsciiAlphanumeric(c)) {
      normalised.push_back(LowerAscii(c));
    }
  }
}

/// Holds a plot field of a layer, and whether the board uses the layer.
struct LayerField {
  std::string_view key;
  bool used = false;
};

bool KeyIsLess(const LayerField& left, const LayerField& right) {
  return left.key < right.key;
}

/// Holds the layer fields of one configuration line in the order of their keys. A line may have
/// millions of fields, mostly in this order already, so a search begins where the previous one
/// ended.
class LayerMap {
 public:
  /// Sorts the fields, given in the order of the line. Of several with one key the last one is
  /// kept.
  explicit LayerMap(std::vector<LayerField> fields) : fields_(std::move(fields)) {
    const auto not_ascending = [](const LayerField& left, const LayerField& right) {
      return !KeyIsLess(left, right);
    };
    if (std::adjacent_find(fields_.begin(), fields_.end(), not_ascending) == fields_.end()) {
      return;
    }
    std::reverse(fields_.begin(), fields_.end());
    std::stable_sort(fields_.begin(), fields_.end(), KeyIsLess);
    const auto same_key = [](const LayerField& left, const LayerField& right) {
      return left.key == right.key;
    };
    fields_.erase(std::unique(fields_.begin(), fields_.end(), same_key), fields_.end());
  }

  std::optional<bool> Find(std::string_view key) {
    if (!IsNext(key)) {
      const LayerField sought{key};
      const bool lies_before_next = (next_ == 0 || KeyIsLess(fields_[next_ - 1], sought)) &&
                                    (next_ == fields_.size() || KeyIsLess(sought, fields_[next_]));
      if (lies_before_next) {
        return std::nullopt;
      }
      const auto found = std::lower_bound(fields_.begin(), fields_.end(), sought, KeyIsLess);
      next_ = static_cast<std::size_t>(found - fields_.begin());
    }
    return IsNext(key) ? std::optional(fields_[next_++].used) : std::nullopt;
  }

 private:
  bool IsNext(std::string_view key) const {
    return next_ < fields_.size() && fields_[next_].key == key;
  }

  std::vector<LayerField> fields_;
  std::size_t next_ = 0;
};

LayerMap ReadLayerMap(std::string_view configuration, const UsedLayers& used) {
  std::vector<LayerField> fields;
  std::string name;
  ForEachPart(configuration, '|', [&](std::string_view part) {
    Field field;
    if (part.starts_with(kPlotV7) && SplitAtEquals(part, field) && field.key.ends_with(kName)) {
      field.key.remove_suffix(kName.size());
      NormaliseLayerName(field.value, name);
      fields.push_back({field.key, used.layer_names.contains(name)});
    }
  });
  return LayerMap(std::move(fields));
}

/// Returns whether the field must be on; nothing when it is not a plot field.
std::optional<bool> WantedState(std::string_view key, const UsedLayers& used, LayerMap& map) {
  if (key.starts_with(kAddToAllPlots)) {
    return false;
  }
  if (key.starts_with(kPlot) && key.ends_with(kPlot)) {
    return used.plot_keys.contains(LowerAscii(key));
  }
  return key.starts_with(kMappedKey) ? map.Find(key) : std::nullopt;
}

}  // namespace

std::string NormalisedLayerName(std::string_view name) {
  std::string normalised;
  NormaliseLayerName(name, normalised);
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
  const std::string_view old = FirstLine(out_job.substr(selection.begin));
  selection.end = selection.begin + old.size();
  selection.value.reserve(old.size());
  LayerMap map = ReadLayerMap(old, used);

  std::size_t copied = 0;
  ForEachPart(old, '|', [&](std::string_view part) {
    Field field;
    const std::optional<bool> wanted =
        SplitAtEquals(part, field) ? WantedState(field.key, used, map) : std::nullopt;
    const std::string_view value = wanted.value_or(false) ? "True" : "False";
    if (!wanted || field.value == value) {
      return;
    }
    const auto value_begin = static_cast<std::size_t>(field.value.data() - old.data());
    selection.value.append(old.substr(copied, value_begin - copied)).append(value);
    selection.changes.push_back({std::string(field.key), *wanted});
    copied = value_begin + field.value.size();
  });
  selection.value.append(old.substr(copied));
  return selection;
}

}  // namespace kestrune
