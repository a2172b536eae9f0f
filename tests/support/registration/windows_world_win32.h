#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/system/owners_win32.h"
#include "tests/support/machine/test_profile_win32.h"
#include "tests/support/registration/registration_run.h"
#include "tests/support/scripted_calls_win32.h"

namespace altium_registration {

/// A profile on this machine, and the real store over scripted calls. Conditions that cannot be
/// produced here, such as another owner or a file that cannot be replaced, are scripted.
class WindowsWorld final : public RegistrationWorld {
 public:
  WindowsWorld();
  ~WindowsWorld() override;

  void Begin(std::string_view rcs,
             const std::optional<std::vector<RegistryValue>>& values) override;
  std::unique_ptr<Store> Open(RunScript& script) override;
  [[nodiscard]] Remains Look() override;
  void SetFile(std::string_view role, std::optional<std::string_view> text) override;
  void MarkSecurity(std::string_view role, SecurityMark mark) override;
  void MakeReadOnly() override;
  void SetEntry(const wchar_t* name, const wchar_t* text) override;
  void DeleteKey() override;

  /// Whether the runs flush their files; without, a run takes a tenth of the time.
  bool flushes = false;

  /// Returns the files that the last run saved, by name.
  [[nodiscard]] std::map<std::wstring, std::string> Backups() const;

 private:
  class Calls;

  [[nodiscard]] std::wstring PathOf(std::string_view role) const;

  /// Open, so that Windows does not load the provider anew for every digest.
  kestrune::CryptProvider provider_;
  std::unique_ptr<TestProfile> profile_;
  std::unique_ptr<Calls> calls_;
  std::wstring backups_;
};

}  // namespace altium_registration
