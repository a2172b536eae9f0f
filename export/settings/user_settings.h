#pragma once

#include <functional>
#include <string>

namespace kestrune {

/// Holds the values of the user's settings.ini. Every text is UTF-16 as written in the file, empty
/// where the file does not set it. Each field's comment names its section and key. A key that the
/// section Target lacks is read from the older section AfterExport.
struct UserSettings {
  /// Target/Enabled: whether an application is to receive a finished export.
  bool enabled = false;
  /// Target/ProgramName: that application's display name.
  std::wstring program_name;
  /// Target/ExecutablePath or Executable: its executable; environment variables are expanded when
  /// it is started.
  std::wstring executable_path;
  /// Target/Arguments: its argument line with placeholders.
  std::wstring arguments;
  /// Target/MailslotName: the mailslot of a copy that is already running.
  std::wstring mailslot_name;
  /// Export/Directory: where finished archives are copied to.
  std::wstring export_directory;
  /// Export/FileName: the template of a finished archive's name; see ArchiveName.
  std::wstring archive_name;
};

/// Returns whether the path is that of an existing regular file.
using IsFile = std::function<bool(const std::wstring& path)>;

/// Returns the caption of the export command: "Export PCB through Kestrune", followed by the
/// application's name when the settings enable one that has a name and whose executable exists.
/// Checks the executable, with its path as written, only when all other conditions hold: it may lie
/// on a slow network.
std::wstring ExportCommandLabel(const UserSettings& settings, const IsFile& is_file);

}  // namespace kestrune
