#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/message_box_win32.h"
#include "entry/command_line.h"

namespace kestrune {

/// The modes as the dispatch calls them, and what it needs besides. Tests put a stand-in here for
/// what no machine does on request: a mode that runs out of memory.
class ModeCalls {
 public:
  ModeCalls() = default;
  ModeCalls(const ModeCalls&) = delete;
  ModeCalls& operator=(const ModeCalls&) = delete;
  virtual ~ModeCalls() = default;

  virtual InstallerResult Install(const InstallerOptions& options);
  virtual int Position(std::uint64_t target, std::uint64_t reference);
  virtual int Prepare(const PrepareCommand& command);
  virtual int WaitNative(const WaitNativeCommand& command);
  virtual int Finalize(const std::wstring& native_zip, const std::wstring& source_pcb,
                       std::optional<std::int64_t> space);

  /// TemporaryRoot without its error text.
  virtual bool FindTemporaryRoot(std::wstring& root);
  /// ShowMessage.
  virtual void Show(const std::wstring& text, MessageIcon icon);
};

/// Reads the process's command line and carries it out; answers the exit code. A line that Windows
/// cannot split ends with 1.
int RunCommandLine(const wchar_t* command_line, ModeCalls& calls) noexcept;

/// Carries out one command and answers its exit code. A failure that escaped a mode because nothing
/// expects it, such as memory running out, is logged and ends with the mode's own failure code,
/// told in the mode's own way as far as that is still possible; never with a crash box.
int RunCommand(const Command& command, ModeCalls& calls) noexcept;

}  // namespace kestrune
