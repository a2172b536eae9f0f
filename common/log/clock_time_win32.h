#pragma once

#include <windows.h>

#include "common/log/clock_time.h"
#include "common/system/system_calls_win32.h"

namespace kestrune {

inline ClockTime ClockTimeFrom(const SYSTEMTIME& time) {
  return {time.wYear,   time.wMonth,  time.wDay,         time.wHour,
          time.wMinute, time.wSecond, time.wMilliseconds};
}

/// Returns the current local time.
inline ClockTime LocalTimeNow(SystemCalls& calls) {
  SYSTEMTIME now{};
  calls.GetLocalClock(&now);
  return ClockTimeFrom(now);
}

/// Returns the current time in UTC.
inline ClockTime UtcTimeNow(SystemCalls& calls) {
  SYSTEMTIME now{};
  calls.GetUtcClock(&now);
  return ClockTimeFrom(now);
}

}  // namespace kestrune
