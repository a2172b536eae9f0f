#include "install/installer_report_win32.h"

#include <windows.h>

#include <new>

#include "common/failure/failure.h"
#include "common/failure/failure_win32.h"
#include "common/files/file_win32.h"
#include "common/log/log_win32.h"
#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

/// Writes the report file. Throws Failure "write" with the code of the call that failed.
void WriteReport(SystemCalls& calls, const std::wstring& path, std::string_view bytes) {
  const ExtendedPath extended(path);
  FileHandle file(calls.Create(extended, {GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS}));
  if (!file) {
    ThrowLastError(L"write");
  }
  try {
    WriteAll(calls, file.Get(), bytes);
  } catch (const Failure&) {
    file.Reset();
    // A truncated report looks like a complete one with fewer problems.
    calls.Delete(extended);
    throw;
  }
}

void WriteReportOrLog(SystemCalls& calls, const std::wstring& path, std::string_view bytes) {
  try {
    WriteReport(calls, path, bytes);
  } catch (const Failure& failure) {
    WriteLogEntry(
        calls, L"Installer report failed",
        L"Error=Cannot write report. GetLastError=" + Decimal(failure.code) + L" Report=" + path);
  }
}

}  // namespace

void WriteInstallerReport(SystemCalls& calls, const InstallerOptions& options,
                          const std::wstring& message) noexcept {
  if (!options.report) {
    return;
  }
  try {
    const std::string bytes = std::string(kUtf8Mark) + Utf8FromWide(WithWindowsLineEnds(message));
    WriteReportOrLog(calls, *options.report, bytes);
  } catch (const std::bad_alloc&) {
    WriteLogEntry(calls, L"Installer report failed", L"Error=Not enough memory. GetLastError=8");
  }
}

}  // namespace kestrune
