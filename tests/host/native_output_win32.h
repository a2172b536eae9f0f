#pragma once

#include <atomic>
#include <string>

#include "common/system/owners_win32.h"

namespace kestrune {

/// How the host writes its archive.
enum class OutputManner {
  Growing,   // in pieces within about a second
  Slow,      // in pieces over about six seconds
  Nothing,   // not at all
  Zero,      // an empty file
  Half,      // stops in the middle
  Replaced,  // writes half of it, then puts the whole one in its place
  Held,      // writes it and keeps it open for itself
};

/// Reads the manner from its name; false when there is none of that name.
bool ParseOutputManner(const std::wstring& name, OutputManner& manner);

/// The host's ODB++ writer.
class NativeOutput {
 public:
  /// Writes the archive. Returns early when `stop` becomes true; false when a file failed.
  bool Write(const std::wstring& path, const std::string& archive, OutputManner manner,
             const std::atomic<bool>& stop);

 private:
  FileHandle held_;
};

}  // namespace kestrune
