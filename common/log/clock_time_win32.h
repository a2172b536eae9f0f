#pragma once

#include <windows.h>

#include "common/log/clock_time.h"

namespace kestrune {

inline ClockTime ClockTimeFrom(const SYSTEMTIME& time) {
  return {time.wYear,   time.wMonth,  time.wDay,         time.wHour,
          time.wMinute, time.wSecond, time.wMilliseconds};
}

/// Returns the current local time.
inline ClockTime LocalTimeNow() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return ClockTimeFrom(now);
}

inline ClockTime UtcTimeNow() {
  SYSTEMTIME now{};
  GetSystemTime(&now);
  return ClockTimeFrom(now);
}

}  // namespace kestrune
