#pragma once

#include <string>
#include <string_view>

#include "common/log/clock_time.h"

namespace kestrune {

/// One log entry as UTF-8 with its CR LF: "[2026-3-7 9:5:2] Stage: <stage> | <detail>". Numbers
/// have no leading zeros; an empty detail leaves the bar out. Of the text before the line end only
/// the first 8,192 UTF-16 units are kept, so that one runaway detail cannot fill the log.
std::string FormatLogLine(const ClockTime& time, std::wstring_view stage, std::wstring_view detail);

}  // namespace kestrune
