#include <windows.h>

/// Does nothing. Its manifest demands an administrator's rights.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  return 0;
}
