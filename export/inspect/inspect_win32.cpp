#include "export/inspect/inspect_win32.h"

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>

#include "common/failure.h"
#include "common/file_win32.h"
#include "common/log_win32.h"
#include "common/text.h"
#include "export/inspect/inspection.h"

namespace kestrune {
namespace {

/// What stands in the result file, in the log, and in the exit code.
struct Outcome {
  int code = kInspected;
  std::string result;
  std::wstring stage;
  std::wstring detail;
};

bool IsAbsence(DWORD code) {
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND ||
         code == ERROR_BAD_NETPATH || code == ERROR_INVALID_NAME || code == ERROR_DIRECTORY;
}

std::string ReadPart(HANDLE file, std::uint64_t offset, std::size_t count) {
  LARGE_INTEGER place;
  place.QuadPart = static_cast<LONGLONG>(offset);
  std::string bytes(count, '\0');
  if (!SetFilePointerEx(file, place, nullptr, FILE_BEGIN) || !ReadAll(file, bytes)) {
    const DWORD code = GetLastError();
    throw Failure{L"The archive could not be read.", code};
  }
  return bytes;
}

LayerList InspectFile(HANDLE file) {
  LARGE_INTEGER size;
  if (!GetFileSizeEx(file, &size)) {
    const DWORD code = GetLastError();
    throw Failure{L"The archive could not be read.", code};
  }
  return InspectArchive(
      {static_cast<std::uint64_t>(size.QuadPart),
       [file](std::uint64_t offset, std::size_t count) { return ReadPart(file, offset, count); }});
}

Outcome NotInspected(int code, const Failure& failure) {
  std::wstring detail = L"Reason=" + failure.text;
  if (failure.code != 0) {
    detail += L" GetLastError=" + Decimal(failure.code);
  }
  return {code, WriteInspectionFailure(failure.text), L"Archive not inspected", detail};
}

Outcome Inspect(const std::wstring& path) {
  const FileHandle file = OpenForReading(path);
  if (!file) {
    const DWORD code = GetLastError();
    return IsAbsence(code)
               ? NotInspected(kInspectArchiveMissing, {L"The archive is not there.", code})
               : NotInspected(kInspectArchiveUnreadable,
                              {L"The archive could not be opened.", code});
  }
  try {
    const LayerList list = InspectFile(file.Get());
    return {kInspected, WriteLayerList(list), L"Archive inspected", SummarizeLayers(list)};
  } catch (const Failure& failure) {
    return NotInspected(kInspectArchiveUnreadable, failure);
  }
}

/// Writes the result and returns `code`, or the code of a result that could not be written.
int Publish(const std::wstring& path, std::string_view result, int code) {
  const std::wstring temporary = path + L".tmp";
  if (WriteWholeFile(temporary, result) && RenameOver(temporary, path)) {
    return code;
  }
  const DWORD error = GetLastError();
  WriteLogEntry(L"Inspection result failed", L"Path=" + path + L" GetLastError=" + Decimal(error));
  return kInspectResultNotWritten;
}

}  // namespace

int InspectForScript(const InspectCommand& command) {
  const Outcome outcome = Inspect(command.archive);
  WriteLogEntry(outcome.stage, L"Path=" + command.archive + L' ' + outcome.detail);
  return Publish(command.result_path, outcome.result, outcome.code);
}

int ReportInspectFailure(const InspectCommand& command) {
  return Publish(command.result_path,
                 WriteInspectionFailure(L"The archive could not be inspected."),
                 kInspectArchiveUnreadable);
}

}  // namespace kestrune
