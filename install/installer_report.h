#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "install/discovery/host_instance.h"
#include "install/installer_options.h"

namespace kestrune {

/// The report of one installer command over all instances, as it grows, and its exit code.
class InstallerReport {
 public:
  explicit InstallerReport(InstallerCommand command) : command_(command) {}

  /// Adds a text and keeps room for the line of a failure that has no memory left.
  void Append(std::wstring_view text);

  /// Adds an instance's line, and sees a problem.
  void Skip(std::wstring_view reason);
  void Fail(std::wstring_view text);
  /// Adds "FAILED: Not enough memory." as far as there is room.
  void FailWithoutMemory() noexcept;

  /// Lets the command end with the code of an instance that is not as it should be.
  void SeeProblem() noexcept;

  /// Ends the whole command with this code.
  void End(std::int32_t code, std::wstring_view text);
  void EndWithoutMemory() noexcept;

  [[nodiscard]] InstallerResult Take() { return {code_, std::move(text_)}; }

 private:
  void AppendWithoutMemory(std::wstring_view text) noexcept;

  InstallerCommand command_;
  std::int32_t code_ = kInstallerDone;
  std::wstring text_;
};

/// Returns an error text as a report shows it: the first 200 characters, with "..." after them when
/// there are more, and each control character, line breaks included, as "?". The file decides what
/// an error quotes, and it must neither fill a report nor add lines to it.
std::wstring ShownError(std::wstring_view error);

/// The report's lines about an instance: name and version, GUID, profile, registry branch.
std::wstring InstanceHeader(const HostInstance& instance);

/// The line that the operation log keeps about the instance that was changed.
std::wstring IdentityLine(const HostInstance& instance);

}  // namespace kestrune
