#include "export/settings/user_settings.h"

namespace kestrune {

std::wstring ExportCommandLabel(const UserSettings& settings, const IsFile& is_file) {
  std::wstring label = L"Export PCB through Kestrune";
  if (settings.enabled && !settings.executable_path.empty() && !settings.program_name.empty() &&
      is_file(settings.executable_path)) {
    label += L" -> " + settings.program_name;
  }
  return label;
}

}  // namespace kestrune
