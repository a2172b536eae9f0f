#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

namespace kestrune {

/// Pixels row by row from the top, each 0x00RRGGBB.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint32_t> pixels;
};

/// Returns what the screen shows in the area, in screen coordinates.
Picture CaptureScreen(const RECT& area);

/// Returns whether the picture is the icon on a plain background.
bool LooksLikeIcon(const Picture& picture, HICON icon);

}  // namespace kestrune
