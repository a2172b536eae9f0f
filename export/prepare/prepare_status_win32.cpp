#include "export/prepare/prepare_status_win32.h"

#include <windows.h>

#include "common/file_win32.h"
#include "common/log_win32.h"

namespace kestrune {
namespace {

bool Publish(const std::wstring& status_path, int prepare_code) {
  const std::wstring temporary = status_path + L".tmp";
  return WriteWholeFile(temporary, prepare_code == kPrepared ? "OK\r\n" : "ERROR\r\n") &&
         MoveFileExW(ExtendedPath(temporary).Get(), ExtendedPath(status_path).Get(),
                     MOVEFILE_WRITE_THROUGH) != FALSE;
}

}  // namespace

int PublishPrepareStatus(const PrepareCommand& command, int prepare_code) {
  if (command.status_path && !Publish(*command.status_path, prepare_code)) {
    WriteLogEntry(L"Prepare status failed", L"Cannot publish completion result");
    return kPrepareStatusNotPublished;
  }
  return prepare_code;
}

}  // namespace kestrune
