#include <windows.h>

/// Does nothing for two minutes. Under the name of another program it is that program to everybody
/// who looks at the list of processes.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  Sleep(120'000);
  return 0;
}
