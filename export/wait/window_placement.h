#pragma once

#include <cstdint>

namespace kestrune {

/// A rectangle on the virtual screen in pixels; right and bottom lie just outside.
struct ScreenRectangle {
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t right = 0;
  std::int32_t bottom = 0;
};

struct ScreenPoint {
  std::int32_t x = 0;
  std::int32_t y = 0;

  friend bool operator==(const ScreenPoint&, const ScreenPoint&) = default;
};

/// Where the window's top-left corner goes to centre the window in the work area. Along an axis
/// where the window is not smaller it goes to the work area's edge rather than off the screen.
ScreenPoint CentredIn(const ScreenRectangle& work_area, const ScreenRectangle& window);

}  // namespace kestrune
