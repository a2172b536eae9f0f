#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/registration/registration_run.h"

namespace altium_registration {

/// A file of the model.
struct ModelFile {
  std::string text;
  /// The sum of the file's SecurityMark values.
  unsigned security = 0;
};

/// A world in memory. Its store makes the same calls as the real one, in the same order and with
/// the same names, and has the same messages, refusals and end states.
class ModelWorld final : public RegistrationWorld {
 public:
  void Begin(std::string_view rcs,
             const std::optional<std::vector<RegistryValue>>& values) override;
  std::unique_ptr<Store> Open(RunScript& script) override;
  [[nodiscard]] Remains Look() override;
  void SetFile(std::string_view role, std::optional<std::string_view> text) override;
  void MarkSecurity(std::string_view role, SecurityMark mark) override;
  void MakeReadOnly() override { is_read_only = true; }
  void SetEntry(const wchar_t* name, const wchar_t* text) override;
  void DeleteKey() override { values.reset(); }

  /// The files by role.
  std::map<std::string, ModelFile, std::less<>> files;
  std::optional<std::vector<RegistryValue>> values;
  std::vector<std::string> log;
  bool is_read_only = false;
  /// All writes of the list in order: "+Item0" or "-Item0".
  std::vector<std::string> list_writes;
};

}  // namespace altium_registration
