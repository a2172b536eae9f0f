#include "export/prepare/layer_selection_win32.h"

#include <windows.h>

#include <cstdint>
#include <optional>
#include <utility>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"

namespace kestrune {
namespace {

constexpr std::uint64_t kLargestFile = std::uint64_t{1} << 30;

std::string ReadOrFail(SystemCalls& calls, const std::wstring& path,
                       const std::wstring& failure_text) {
  std::optional<std::string> bytes = ReadFileIfPossible(calls, path, kLargestFile);
  if (!bytes) {
    throw Failure{failure_text + path, 0};
  }
  return *std::move(bytes);
}

/// Writes the new job in three pieces, since a job may be large and the process has little memory.
void WriteSelected(SystemCalls& calls, const std::wstring& path, std::string_view job,
                   const LayerSelection& selection) {
  FileWriter file(calls, path);
  file.Write(job.substr(0, selection.begin));
  file.Write(selection.value);
  file.Write(job.substr(selection.end));
  file.Finish(L"write");
}

bool TryRename(SystemCalls& calls, const std::wstring& source, const std::wstring& target) {
  return calls.Move(ExtendedPath(source), ExtendedPath(target), MOVEFILE_REPLACE_EXISTING) != FALSE;
}

/// Replaces the old job. Where it cannot be renamed over, deletes it first and renames again.
bool Replace(SystemCalls& calls, const std::wstring& temporary, const std::wstring& target) {
  if (TryRename(calls, temporary, target)) {
    return true;
  }
  calls.Delete(ExtendedPath(target));
  return TryRename(calls, temporary, target);
}

std::vector<PlotFieldChange> RewriteOutJob(SystemCalls& calls, const std::wstring& out_job,
                                           const std::wstring& manifest) {
  const UsedLayers used =
      ParseUsedLayers(ReadOrFail(calls, manifest, L"Cannot read the used-layer manifest: "));
  const std::string job = ReadOrFail(calls, out_job, L"Cannot read the temporary OutJob: ");
  std::optional<LayerSelection> selection = SelectLayers(job, used);
  if (!selection) {
    throw Failure{L"The ODB configuration was not found in the temporary OutJob.", 0};
  }
  const std::wstring temporary = out_job + L".tmp";
  try {
    WriteSelected(calls, temporary, job, *selection);
  } catch (const Failure&) {
    throw Failure{L"Cannot write the temporary OutJob update.", 0};
  }
  if (!Replace(calls, temporary, out_job)) {
    calls.Delete(ExtendedPath(temporary));
    throw Failure{L"Cannot replace the temporary OutJob after layer selection.", 0};
  }
  return std::move(selection->changes);
}

}  // namespace

bool SelectOutJobLayers(SystemCalls& calls, const std::wstring& out_job,
                        const std::wstring& manifest, std::vector<PlotFieldChange>& changes,
                        std::wstring& error_text) {
  changes.clear();
  error_text.clear();
  try {
    changes = RewriteOutJob(calls, out_job, manifest);
    return true;
  } catch (const Failure& failure) {
    error_text = failure.text;
    return false;
  }
}

}  // namespace kestrune
