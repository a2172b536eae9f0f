#include "install/installer_win32.h"

namespace kestrune {

InstallerResult RunInstallerCommand(const InstallerOptions& /*options*/,
                                    const std::wstring& /*program_path*/) {
  return {40, L"The installer is not part of this build."};
}

}  // namespace kestrune
