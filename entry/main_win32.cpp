#include <windows.h>

#include "entry/dispatch_win32.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  // The program runs from folders that its user may write: a DLL planted there must never load.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  const auto command = kestrune::ReadCommandLine(GetCommandLineW());
  if (!command) {
    return kestrune::kNotACommand;
  }
  kestrune::Desktop desktop;
  return kestrune::RunCommand(*command, kestrune::kModes, desktop);
}
