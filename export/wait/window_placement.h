#pragma once

#include <cstdint>

namespace kestrune {

/// Holds a rectangle on the virtual screen in pixels; right and bottom are exclusive.
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

/// Returns the top-left corner that centres the window in the work area. Along an axis in which the
/// window is not smaller than the work area, the corner is at the work area's left or top edge, so
/// that it is visible.
ScreenPoint CentredIn(const ScreenRectangle& work_area, const ScreenRectangle& window);

}  // namespace kestrune
