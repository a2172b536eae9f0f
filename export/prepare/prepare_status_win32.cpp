#include "export/prepare/prepare_status_win32.h"

#include <windows.h>

#include "common/file_win32.h"

namespace kestrune {

bool PublishPrepareStatus(const std::wstring& status_path, int prepare_code) {
  const std::wstring temporary = status_path + L".tmp";
  return WriteWholeFile(temporary, prepare_code == 0 ? "OK\r\n" : "ERROR\r\n") &&
         MoveFileExW(ExtendedPath(temporary).c_str(), ExtendedPath(status_path).c_str(),
                     MOVEFILE_WRITE_THROUGH) != FALSE;
}

}  // namespace kestrune
