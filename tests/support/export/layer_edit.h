#pragma once

#include <string>
#include <string_view>

#include "export/prepare/layer_selection.h"

namespace kestrune {

/// Returns the whole output job after a selection.
inline std::string Applied(std::string_view out_job, const LayerSelection& selection) {
  return std::string(out_job.substr(0, selection.begin))
      .append(selection.value)
      .append(out_job.substr(selection.end));
}

}  // namespace kestrune
