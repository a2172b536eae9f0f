#include "common/log/clock_time.h"

#include "common/text/text.h"

namespace kestrune {

std::wstring ClockStamp(const ClockTime& time) {
  return PaddedDecimal(time.year, 4) + PaddedDecimal(time.month, 2) + PaddedDecimal(time.day, 2) +
         L"_" + PaddedDecimal(time.hour, 2) + PaddedDecimal(time.minute, 2) +
         PaddedDecimal(time.second, 2) + L"_" + PaddedDecimal(time.millisecond, 3);
}

}  // namespace kestrune
