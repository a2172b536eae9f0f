#pragma once

#include <string>
#include <vector>

#include "common/system/system_calls_win32.h"
#include "export/prepare/layer_selection.h"

namespace kestrune {

/// Switches the plot fields of the output job at `out_job` so that exactly the layers of the
/// manifest are on, and fills `changes` with the fields that changed, in their order.
///
/// Returns false with the error text; the output job is then unchanged, or missing if it could be
/// deleted but not replaced. The job is written even when no field changed. A job above 1 GiB is
/// refused, since a 32-bit process cannot hold it twice. Throws std::bad_alloc.
[[nodiscard]] bool SelectOutJobLayers(SystemCalls& calls, const std::wstring& out_job,
                                      const std::wstring& manifest,
                                      std::vector<PlotFieldChange>& changes,
                                      std::wstring& error_text);

}  // namespace kestrune
