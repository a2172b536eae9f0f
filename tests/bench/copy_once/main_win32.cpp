// copy_once.exe SOURCE TARGET: one CopyFileW, the least that delivering an archive can cost.
#include <windows.h>
#include <shellapi.h>

#include "common/owners_win32.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  int count = 0;
  const kestrune::LocalMemory<wchar_t*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
  return arguments && count == 3 && CopyFileW(arguments.Get()[1], arguments.Get()[2], FALSE) ? 0
                                                                                             : 1;
}
