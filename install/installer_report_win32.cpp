#include "install/installer_report_win32.h"

#include <windows.h>

#include <new>

#include "common/file_win32.h"
#include "common/log_win32.h"
#include "common/text.h"

namespace kestrune {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

/// Returns ERROR_SUCCESS, or the code of the call that failed.
DWORD WriteReport(const std::wstring& path, std::string_view bytes) {
  FileHandle file(CreateFileW(ExtendedPath(path).Get(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    return GetLastError();
  }
  if (WriteAll(file.Get(), bytes)) {
    return ERROR_SUCCESS;
  }
  const DWORD code = GetLastError();
  file.Reset();
  // Half a report reads like a whole one that names fewer problems.
  DeleteFileW(ExtendedPath(path).Get());
  return code;
}

}  // namespace

void WriteInstallerReport(const InstallerOptions& options, const std::wstring& message) noexcept {
  if (!options.report) {
    return;
  }
  try {
    const std::string bytes = std::string(kUtf8Mark) + Utf8FromWide(WithWindowsLineEnds(message));
    const DWORD code = WriteReport(*options.report, bytes);
    if (code != ERROR_SUCCESS) {
      WriteLogEntry(L"Installer report failed", L"Error=Cannot write report. GetLastError=" +
                                                    Decimal(code) + L" Report=" + *options.report);
    }
  } catch (const std::bad_alloc&) {
    WriteLogEntry(L"Installer report failed", L"Error=Not enough memory. GetLastError=8");
  }
}

}  // namespace kestrune
