#pragma once

#include <windows.h>

#include <mutex>
#include <string>
#include <vector>

#include "common/system/owners_win32.h"

namespace kestrune {

/// The fields of one line.
using Fields = std::vector<std::wstring>;

/// The lines that come on this program's standard input and go to its standard output: UTF-8 with
/// tabs between the fields. A field writes a line feed as \n, and \ as \\.
class Conversation {
 public:
  Conversation();
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  /// Returns the event that is set while there are lines to take, and once the input has ended.
  [[nodiscard]] HANDLE Event() const { return event_.Get(); }

  /// Takes the lines that have come so far.
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
