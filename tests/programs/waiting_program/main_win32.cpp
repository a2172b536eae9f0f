#include <windows.h>

/// Does nothing for two minutes. A copy under the name of another program appears as that program
/// in the list of processes.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  Sleep(120'000);
  return 0;
}
