// copy_once.exe SOURCE TARGET: one CopyFileW, the minimum for delivering an archive. If SOURCE is
// a folder, one CopyFileW for each of its files to the folder TARGET, the minimum for preparing a
// panel.
#include <windows.h>
#include <shellapi.h>

#include <string>

#include "common/system/owners_win32.h"
#include "common/text/path.h"

namespace {

bool CopyFolder(const std::wstring& source, const std::wstring& target) {
  WIN32_FIND_DATAW entry{};
  const kestrune::FindHandle find(FindFirstFileW(kestrune::JoinPath(source, L"*").c_str(), &entry));
  if (!find) {
    return false;
  }
  do {
    const bool is_file = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    if (is_file && !CopyFileW(kestrune::JoinPath(source, entry.cFileName).c_str(),
                              kestrune::JoinPath(target, entry.cFileName).c_str(), FALSE)) {
      return false;
    }
  } while (FindNextFileW(find.Get(), &entry));
  return GetLastError() == ERROR_NO_MORE_FILES;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  int count = 0;
  const kestrune::LocalMemory<wchar_t*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!arguments || count != 3) {
    return 1;
  }
  const wchar_t* const source = arguments.Get()[1];
  const wchar_t* const target = arguments.Get()[2];
  const DWORD attributes = GetFileAttributesW(source);
  const bool is_folder =
      attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return (is_folder ? CopyFolder(source, target) : CopyFileW(source, target, FALSE)) ? 0 : 1;
}
