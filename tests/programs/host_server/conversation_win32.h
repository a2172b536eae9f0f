#pragma once

#include <windows.h>

#include <mutex>
#include <string>
#include <vector>

#include "common/system/owners_win32.h"

namespace kestrune {

/// The fields of one line.
using Fields = std::vector<std::wstring>;

/// Reads the lines of this program's standard input and writes those of its standard output: UTF-8
/// with tabs between the fields. In a field a line feed is written as \n, and \ as \\.
class Conversation {
 public:
  Conversation();
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  /// Returns the event that is set while there are received lines, and once the input has ended.
  [[nodiscard]] HANDLE Event() const { return event_.Get(); }

  /// Returns the lines received so far and removes them.
  std::vector<Fields> Take();
  /// Returns whether the input has ended and every line of it was taken.
  bool Ended();

  static void Say(const Fields& fields);

 private:
  static DWORD WINAPI ReadAll(void* self);
  void Read();
  void Add(const std::string& line);

  KernelHandle event_;
  std::mutex mutex_;
  std::vector<Fields> lines_;
  bool ended_ = false;
};

}  // namespace kestrune
