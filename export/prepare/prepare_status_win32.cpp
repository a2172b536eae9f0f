#include "export/prepare/prepare_status_win32.h"

#include <windows.h>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/log/log_win32.h"

namespace kestrune {
namespace {

void Publish(SystemCalls& calls, const std::wstring& status_path, int prepare_code) {
  const std::wstring temporary = status_path + L".tmp";
  WriteWholeFile(calls, temporary, prepare_code == kPrepared ? "OK\r\n" : "ERROR\r\n");
  RenameFile(calls, temporary, status_path, MOVEFILE_WRITE_THROUGH);
}

}  // namespace

int PublishPrepareStatus(SystemCalls& calls, const PrepareCommand& command, int prepare_code) {
  try {
    if (command.status_path) {
      Publish(calls, *command.status_path, prepare_code);
    }
    return prepare_code;
  } catch (const Failure&) {
    WriteLogEntry(calls, L"Prepare status failed", L"Cannot publish completion result");
    return kPrepareStatusNotPublished;
  }
}

}  // namespace kestrune
