#pragma once

#include <string>

namespace kestrune {

/// Holds a date and time for logs and file names, in local time or in UTC.
struct ClockTime {
  unsigned year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  unsigned millisecond = 0;
};

/// Returns the date and time for use in a file name: "20250131_235959_042".
std::wstring ClockStamp(const ClockTime& time);

}  // namespace kestrune
