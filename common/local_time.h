#pragma once

namespace kestrune {

/// A moment on the user's clock, as logs and names show it.
struct LocalTime {
  unsigned year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  unsigned millisecond = 0;
};

}  // namespace kestrune
