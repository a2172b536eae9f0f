#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace kestrune {

/// What the stand-in did and saw, one line a step: milliseconds since its start, a tab, the text in
/// UTF-8. Each line is in the file at once, so that others can follow.
class Journal {
 public:
  explicit Journal(std::wstring path);

  void Note(std::wstring_view text);

 private:
  std::wstring path_;
  ULONGLONG begin_ = GetTickCount64();
};

}  // namespace kestrune
