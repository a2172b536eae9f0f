#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "install/discovery/host_instance.h"
#include "install/installer_options.h"

namespace kestrune {

/// Collects the report of an installer command over all instances, and its exit code.
class InstallerReport {
 public:
  explicit InstallerReport(InstallerCommand command) : command_(command) {}

  /// Adds a text and reserves the memory for FailWithoutMemory.
  void Append(std::wstring_view text);

  /// Adds the line of a skipped instance and sets the failure code.
  void Skip(std::wstring_view reason);
  void Fail(std::wstring_view text);
  /// Adds "FAILED: Not enough memory." if memory for it is reserved, and sets the failure code.
  void FailWithoutMemory() noexcept;

  /// Sets the exit code for a skipped or failed instance.
  void SetFailureCode() noexcept;

  /// Sets the exit code of the whole command and adds a text.
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
/// there are more, and each control character, line breaks included, as "?". An error may quote the
/// customization file, which must not fill the report or add lines to it.
std::wstring ShownError(std::wstring_view error);

/// Returns the report's lines about an instance: name and version, GUID, profile, registry branch.
std::wstring InstanceHeader(const HostInstance& instance);

/// Returns the line of the operation log that names the changed instance.
std::wstring IdentityLine(const HostInstance& instance);

}  // namespace kestrune
