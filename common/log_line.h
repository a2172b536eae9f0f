#pragma once

#include <string>
#include <string_view>

namespace kestrune {

/// A local time as the log writes it.
struct LogTime {
  unsigned year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
};

/// One log entry as UTF-8 with its CR LF: "[2026-3-7 9:5:2] Stage: <stage> | <detail>". Numbers
/// have no leading zeros; an empty detail leaves the bar out. Of the text before the line end only
/// the first 8,192 UTF-16 units are kept, so that one runaway detail cannot fill the log.
std::string FormatLogLine(const LogTime& time, std::wstring_view stage, std::wstring_view detail);

}  // namespace kestrune
