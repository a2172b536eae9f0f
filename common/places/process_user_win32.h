#pragma once

#include <windows.h>

#include <vector>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Holds the user of a process.
class ProcessUser {
 public:
  /// Reads the user of `process` (a handle with query rights). Returns false when the token cannot
  /// be opened or read, or its size is not within 1 to 65,536 bytes.
  [[nodiscard]] bool Read(SystemCalls& calls, HANDLE process);

  /// Returns the user's SID, valid as long as this object. Requires a successful Read.
  [[nodiscard]] PSID Sid() const;

 private:
  /// A TOKEN_USER record, whose SID is in the same buffer.
  std::vector<BYTE> buffer_;
};

}  // namespace kestrune
