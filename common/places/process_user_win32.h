#pragma once

#include <windows.h>

#include <vector>

namespace kestrune {

/// The user of a process, as a TOKEN_USER record whose SID points into the same buffer.
class ProcessUser {
 public:
  /// Reads the user of `process` (a handle with query rights). False when the token cannot be
  /// opened, or its size is not within 1 to 65,536 bytes, or it cannot be read.
  [[nodiscard]] bool Read(HANDLE process);

  /// The user's SID; only after a successful Read, and as long as this object lives.
  [[nodiscard]] PSID Sid() const;

 private:
  std::vector<BYTE> buffer_;
};

}  // namespace kestrune
