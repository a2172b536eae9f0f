#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "tests/host/host_windows_win32.h"
#include "tests/host/journal_win32.h"
#include "tests/host/native_output_win32.h"

namespace kestrune {

/// What one export is about and how the host behaves in it.
struct ExportOptions {
  std::wstring program;  // Kestrune.exe
  std::wstring board;
  std::wstring archive;  // the bytes that the host writes; empty: an archive of its own making
  std::wstring space;    // what stands behind the board in --finalize-auto; may be empty
  std::wstring photos;   // folder through which somebody outside takes photographs; may be empty
  std::vector<std::wstring> dependencies;
  std::vector<std::wstring> plot_keys;
  std::vector<std::wstring> layer_names;
  OutputManner manner = OutputManner::Growing;
  unsigned patience = 150'000;  // milliseconds that the script waits for an answer
  bool press_ok = false;        // whether the stand-in also plays the user who closes the message
};

/// How far an export came; the stand-in's exit code.
enum class ExportEnd {
  Delivered = 0,
  BadCommandLine = 1,
  PrepareWithoutAnswer = 2,
  PrepareFailed = 3,
  ProjectUnreadable = 4,
  WaitWithoutAnswer = 5,
  WaitFailed = 6,
  DeliveryFailed = 7,
  FileFailed = 8,
};

/// Plays the script's and the host's part of one export from the button to the message.
ExportEnd RunExport(const ExportOptions& options, HostWindows& windows, Journal& journal);

}  // namespace kestrune
