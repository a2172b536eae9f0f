#pragma once

#include <string>
#include <vector>

#include "export/prepare/layer_selection.h"

namespace kestrune {

/// The calls that put the new job in the old one's place. Tests put a stand-in here for calls that
/// fail.
class ReplaceCalls {
 public:
  ReplaceCalls() = default;
  ReplaceCalls(const ReplaceCalls&) = delete;
  ReplaceCalls& operator=(const ReplaceCalls&) = delete;
  virtual ~ReplaceCalls() = default;

  /// RenameOver.
  virtual bool Rename(const std::wstring& source, const std::wstring& target);
  /// DeleteFileW.
  virtual void Delete(const std::wstring& path);
};

/// Switches the plot fields of the output job at `out_job` so that exactly the layers of the
/// manifest are on, and fills `changes` with the fields that changed, in their order.
///
/// False with the error text; the output job is then as it was, except when its replacement failed
/// twice. The job is written anew also when nothing changed. A job above 1 GiB is refused, which
/// is more than a 32-bit process could hold twice.
[[nodiscard]] bool SelectOutJobLayers(const std::wstring& out_job, const std::wstring& manifest,
                                      std::vector<PlotFieldChange>& changes,
                                      std::wstring& error_text);

/// The same through `calls`.
[[nodiscard]] bool SelectOutJobLayers(const std::wstring& out_job, const std::wstring& manifest,
                                      std::vector<PlotFieldChange>& changes,
                                      std::wstring& error_text, ReplaceCalls& calls);

}  // namespace kestrune
