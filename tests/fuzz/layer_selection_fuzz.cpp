#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "export/prepare/layer_selection.h"
#include "tests/support/export/layer_edit.h"
#include "tests/support/require_law.h"

namespace {

using kestrune::LayerSelection;
using kestrune::PlotFieldChange;
using kestrune::UsedLayers;

std::string_view NextPart(std::string_view& text) {
  const std::size_t end = std::min(text.find('|'), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

/// Checks that the new line differs from the old one only by the reported changes, in their order.
void CheckFields(std::string_view before, std::string_view after, const LayerSelection& selection) {
  Require(std::count(before.begin(), before.end(), '|') ==
          std::count(after.begin(), after.end(), '|'));
  std::size_t changed = 0;
  while (!before.empty() || !after.empty()) {
    const std::string_view old_field = NextPart(before);
    const std::string_view new_field = NextPart(after);
    if (old_field == new_field) {
      continue;
    }
    Require(changed < selection.changes.size());
    const PlotFieldChange& change = selection.changes[changed++];
    Require(new_field == change.field + (change.enabled ? "=True" : "=False"));
    Require(old_field.starts_with(change.field + "="));
  }
  Require(changed == selection.changes.size());
}

}  // namespace

/// Selects layers with the input: a manifest, a null byte and an output job.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t border = std::min(input.find('\0'), input.size());
  const UsedLayers used = kestrune::ParseUsedLayers(input.substr(0, border));
  const std::string_view job = input.substr(std::min(border + 1, input.size()));

  const auto selection = kestrune::SelectLayers(job, used);
  Require(selection.has_value() == (job.find("Configuration1_Item1=") != std::string_view::npos));
  if (!selection) {
    return 0;
  }
  Require(selection->begin <= selection->end && selection->end <= job.size());
  Require(job.substr(0, selection->begin).ends_with("Configuration1_Item1="));
  Require(selection->value.find_first_of("\r\n") == std::string::npos);
  Require(selection->end == job.size() || job[selection->end] == '\r' ||
          job[selection->end] == '\n');
  CheckFields(job.substr(selection->begin, selection->end - selection->begin), selection->value,
              *selection);

  const auto again = kestrune::SelectLayers(kestrune::Applied(job, *selection), used);
  // A selection may change a name field that is a layer field itself; only then may a second
  // selection differ from the first.
  const bool names_changed =
      std::any_of(selection->changes.begin(), selection->changes.end(),
                  [](const PlotFieldChange& change) { return change.field.ends_with("_name"); });
  Require(again.has_value());
  Require(names_changed || (again->changes.empty() && again->value == selection->value));
  return 0;
}
