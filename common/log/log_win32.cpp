#include "common/log/log_win32.h"

#include <windows.h>

#include "common/log/clock_time_win32.h"
#include "common/files/file_win32.h"
#include "common/places/known_folders_win32.h"
#include "common/log/log_line.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/places/product_files.h"

namespace kestrune {
namespace {

constexpr LONGLONG kLargestLog = 0x100000;

void AppendLine(SystemCalls& calls, const std::wstring& path, std::string_view line) {
  // Not shared for writing: a second writer drops its entry instead of interleaving it with this
  // one.
  const FileHandle file(
      calls.Create(ExtendedPath(path), {GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS}));
  LARGE_INTEGER size{};
  if (!file || !calls.GetSize(file.Get(), &size)) {
    return;
  }
  const bool starts_over = size.QuadPart + static_cast<LONGLONG>(line.size()) > kLargestLog;
  if (!calls.SetPointer(file.Get(), {}, nullptr, starts_over ? FILE_BEGIN : FILE_END) ||
      (starts_over && !calls.SetEnd(file.Get()))) {
    return;
  }
  DWORD written = 0;
  calls.Write(file.Get(), line.data(), static_cast<DWORD>(line.size()), &written);
}

}  // namespace

std::wstring LogFilePath(SystemCalls& calls) {
  std::wstring local;
  std::wstring error_text;
  if (!LocalAppDataDirectory(calls, local, error_text)) {
    return {};
  }
  return JoinPath({local, kProductFolder, kLogFolder, kLogFile});
}

void WriteLogEntry(SystemCalls& calls, std::wstring_view stage, std::wstring_view detail) noexcept {
  const LastErrorKeeper keeper;
  try {
    const std::wstring path = LogFilePath(calls);
    if (!path.empty()) {
      CreateDirectories(calls, std::wstring(ParentPath(path)));
      AppendLine(calls, path, FormatLogLine(LocalTimeNow(calls), stage, detail));
    }
  } catch (...) {
    // The log is optional: an export must not fail because the log's folder or memory for it is
    // missing.
    return;
  }
}

}  // namespace kestrune
