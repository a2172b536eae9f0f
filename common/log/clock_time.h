#pragma once

#include <string>

namespace kestrune {

/// A moment as a clock shows it, for logs and names: the user's own or one in UTC.
struct ClockTime {
  unsigned year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  unsigned millisecond = 0;
};

/// The moment in a file's name: "20250131_235959_042".
std::wstring ClockStamp(const ClockTime& time);

}  // namespace kestrune
