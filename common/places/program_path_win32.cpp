#include "common/places/program_path_win32.h"

namespace kestrune {

std::wstring ProgramPath(SystemCalls& calls, DWORD capacity) {
  std::wstring path(capacity, L'\0');
  const DWORD length = calls.GetProgramPath(path.data(), capacity);
  path.resize(length < capacity ? length : 0);
  return path;
}

}  // namespace kestrune
