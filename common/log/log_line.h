#pragma once

#include <string>
#include <string_view>

#include "common/log/clock_time.h"

namespace kestrune {

/// Returns one log entry as UTF-8 with its CR LF: "[2026-3-7 9:5:2] Stage: <stage> | <detail>".
/// Numbers have no leading zeros; the bar is omitted for an empty detail. The text before the line
/// end is truncated to 8,192 UTF-16 units, so that one long detail cannot fill the log.
std::string FormatLogLine(const ClockTime& time, std::wstring_view stage, std::wstring_view detail);

}  // namespace kestrune
