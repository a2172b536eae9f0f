#pragma once

#include <windows.h>

#include "common/local_time.h"

namespace kestrune {

inline LocalTime LocalTimeNow() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

}  // namespace kestrune
