#include "export/wait/native_wait_win32.h"

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/log/log_win32.h"
#include "common/text/text.h"
#include "export/wait/native_wait.h"

namespace kestrune {
namespace {

std::optional<std::uint64_t> SizeOfRegularFile(SystemCalls& calls, const std::wstring& path) {
  const std::optional<FileEntry> entry = QueryEntryQuietly(calls, path);
  return entry && entry->kind == FileKind::RegularFile ? std::optional(entry->size) : std::nullopt;
}

/// Writes the result file. Ignores failures, since the script stops polling for the file after its
/// time limit.
void WriteResult(SystemCalls& calls, const std::wstring& path, const std::string& text) {
  try {
    WriteWholeFile(calls, path, text);
  } catch (const Failure&) {
    return;
  }
}

}  // namespace

void ReportNativeWaitFailure(SystemCalls& calls, const WaitNativeCommand& command) {
  WriteResult(calls, command.result_path, "ERROR\r\n");
}

int WaitForNativeOutput(SystemCalls& calls, const WaitNativeCommand& command) {
  WriteLogEntry(calls, L"Waiting for native output",
                L"Expected=" + command.expected_path + L" Report=" + command.report_path);
  const std::optional<std::uint64_t> size =
      WaitForStableSize([&] { return SizeOfRegularFile(calls, command.expected_path); },
                        [&] { calls.Wait(kWaitSleepMilliseconds); });
  if (!size) {
    WriteLogEntry(calls, L"Native output timeout", L"Expected=" + command.expected_path);
    ReportNativeWaitFailure(calls, command);
    return kNativeWaitFailed;
  }
  WriteResult(calls, command.result_path, "OK\r\n" + std::to_string(*size));
  const bool has_report = QueryFileKindQuietly(calls, command.report_path) == FileKind::RegularFile;
  WriteLogEntry(calls, L"Native output stable",
                L"Path=" + command.expected_path + L" Size=" + Decimal(*size) + L" ReportExists=" +
                    (has_report ? L"yes" : L"no"));
  return kNativeOutputComplete;
}

}  // namespace kestrune
