#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// What the user's settings.ini says. Every text is UTF-16 as written in the file, empty where the
/// file says nothing.
struct UserSettings {
  /// Whether an application is to receive a finished export.
  bool enabled = false;
  /// That application's display name.
  std::wstring program_name;
  /// Its executable; environment variables are expanded only when it is started.
  std::wstring executable_path;
  /// Its argument line with placeholders.
  std::wstring arguments;
  /// The mailslot of a copy that is already running.
  std::wstring mailslot_name;
  /// Where finished archives are copied to.
  std::wstring export_directory;
  /// Section "Registration", key "ExtraRecords": further record kinds that the installer accepts in
  /// a host's customization file, as written; see ExtraRecordKinds.
  std::wstring extra_records;
};

/// Whether a path is that of an existing regular file.
using IsFile = std::function<bool(const std::wstring& path)>;

/// The caption of the export command: "Export PCB through Kestrune", and the application's name
/// behind it when the settings enable one that has a name and whose executable is there.
/// The executable's path is asked as written, and only when everything else speaks for the name: it
/// may lie on a network that takes long to answer.
std::wstring ExportCommandLabel(const UserSettings& settings, const IsFile& is_file);

/// The record kinds in the comma-separated list `extra_records`, in its order and each once,
/// without the spaces and tabs around them.
///
/// Left out are the six kinds that are known anyway, and names that a customization file could not
/// hold as a keyword: empty ones, "End", names with blanks, control characters, quotes or "=", and
/// names outside ASCII, for the file's bytes have no known encoding.
std::vector<std::string> ExtraRecordKinds(std::wstring_view extra_records);

}  // namespace kestrune
