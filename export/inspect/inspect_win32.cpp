#include "export/inspect/inspect_win32.h"

#include <windows.h>

#include <string>
#include <string_view>

#include "common/failure/failure.h"
#include "common/failure/failure_win32.h"
#include "common/files/file_win32.h"
#include "common/log/log_win32.h"
#include "common/failure/windows_error_win32.h"
#include "export/inspect/inspection.h"

namespace kestrune {
namespace {

/// Holds the text of the result file, the log entry and the exit code.
struct Outcome {
  int code = kInspected;
  std::string result;
  std::wstring stage;
  std::wstring detail;
};

constexpr wchar_t kUnreadable[] = L"The archive could not be read.";

std::string ReadPart(SystemCalls& calls, HANDLE file, std::uint64_t offset, std::size_t count) {
  LARGE_INTEGER place;
  place.QuadPart = static_cast<LONGLONG>(offset);
  std::string bytes(count, '\0');
  if (!calls.SetPointer(file, place, nullptr, FILE_BEGIN)) {
    ThrowLastError(kUnreadable);
  }
  try {
    ReadAll(calls, file, bytes);
  } catch (const Failure& failure) {
    throw Failure{kUnreadable, failure.code};
  }
  return bytes;
}

LayerList InspectFile(SystemCalls& calls, HANDLE file) {
  LARGE_INTEGER size;
  if (!calls.GetSize(file, &size)) {
    ThrowLastError(kUnreadable);
  }
  return InspectArchive({static_cast<std::uint64_t>(size.QuadPart),
                         [&calls, file](std::uint64_t offset, std::size_t count) {
                           return ReadPart(calls, file, offset, count);
                         }});
}

Outcome NotInspected(int code, const Failure& failure) {
  std::wstring detail = L"Reason=" + failure.text;
  if (failure.code != 0) {
    detail += CodeField(failure);
  }
  return {code, WriteInspectionFailure(failure.text), L"Archive not inspected", detail};
}

Outcome Inspect(SystemCalls& calls, const std::wstring& path) {
  const ExtendedPath extended(path);
  const FileHandle file(calls.Create(
      extended, {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE}));
  if (!file) {
    const DWORD code = GetLastError();
    return MeansAbsent(code)
               ? NotInspected(kInspectArchiveMissing, {L"The archive does not exist.", code})
               : NotInspected(kInspectArchiveUnreadable,
                              {L"The archive could not be opened.", code});
  }
  try {
    const LayerList list = InspectFile(calls, file.Get());
    return {kInspected, WriteLayerList(list), L"Archive inspected", SummarizeLayers(list)};
  } catch (const Failure& failure) {
    return NotInspected(kInspectArchiveUnreadable, failure);
  }
}

/// Writes the result and returns `code`, or kInspectResultNotWritten.
int Publish(SystemCalls& calls, const std::wstring& path, std::string_view result, int code) {
  const std::wstring temporary = path + L".tmp";
  try {
    WriteWholeFile(calls, temporary, result);
    RenameFile(calls, temporary, path, MOVEFILE_REPLACE_EXISTING);
    return code;
  } catch (const Failure& failure) {
    WriteLogEntry(calls, L"Inspection result failed", L"Path=" + path + CodeField(failure));
    return kInspectResultNotWritten;
  }
}

}  // namespace

int InspectForScript(SystemCalls& calls, const InspectCommand& command) {
  const Outcome outcome = Inspect(calls, command.archive);
  WriteLogEntry(calls, outcome.stage, L"Path=" + command.archive + L' ' + outcome.detail);
  return Publish(calls, command.result_path, outcome.result, outcome.code);
}

int ReportInspectFailure(SystemCalls& calls, const InspectCommand& command) {
  return Publish(calls, command.result_path,
                 WriteInspectionFailure(L"The archive could not be inspected."),
                 kInspectArchiveUnreadable);
}

}  // namespace kestrune
