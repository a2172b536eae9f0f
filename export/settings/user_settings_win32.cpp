#include "export/settings/user_settings_win32.h"

#include <windows.h>
#include <shlobj.h>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/places/product_files.h"

namespace kestrune {
namespace {

constexpr int kAbsentNumber = -1;

/// Returns false when the shell does not know the folder.
bool ShellFolder(SystemCalls& calls, int folder, std::wstring& path) {
  wchar_t buffer[MAX_PATH] = {};
  if (FAILED(calls.GetShellFolder(folder, buffer))) {
    return false;
  }
  path = buffer;
  return true;
}

/// Reads the keys of one settings file.
class SettingsFile {
 public:
  SettingsFile(SystemCalls& calls, const std::wstring& path) : calls_(calls), path_(path) {}

  [[nodiscard]] std::wstring Text(const wchar_t* section, const wchar_t* key) const {
    return ReadProfileText(calls_, path_, section, key);
  }

  /// Returns the current section's text, or that of the older section where it is absent or empty.
  [[nodiscard]] std::wstring TargetText(const wchar_t* key) const {
    std::wstring text = Text(L"Target", key);
    return text.empty() ? Text(L"AfterExport", key) : text;
  }

  [[nodiscard]] bool Enabled() const {
    const int current = Number(L"Target", L"Enabled", kAbsentNumber);
    return (current < 0 ? Number(L"AfterExport", L"Enabled", 0) : current) != 0;
  }

 private:
  [[nodiscard]] int Number(const wchar_t* section, const wchar_t* key, int absent) const {
    return static_cast<int>(calls_.ReadProfileNumber(section, key, absent, path_));
  }

  SystemCalls& calls_;
  const std::wstring& path_;
};

/// Returns all keys of the settings file at its full path.
UserSettings ReadSettingsFile(SystemCalls& calls, const std::wstring& path) {
  const SettingsFile file(calls, path);
  UserSettings settings;
  settings.enabled = file.Enabled();
  settings.program_name = file.TargetText(L"ProgramName");
  settings.executable_path = file.TargetText(L"ExecutablePath");
  if (settings.executable_path.empty()) {
    settings.executable_path = file.TargetText(L"Executable");
  }
  settings.arguments = file.TargetText(L"Arguments");
  settings.mailslot_name = file.TargetText(L"MailslotName");
  settings.export_directory = file.Text(L"Export", L"Directory");
  settings.archive_name = file.Text(L"Export", L"FileName");
  return settings;
}

}  // namespace

std::wstring ResolveSettingsPath(SystemCalls& calls, std::wstring_view folder_name) {
  std::wstring folder;
  if (!ShellFolder(calls, CSIDL_LOCAL_APPDATA, folder) || folder.empty()) {
    return {};
  }
  // Unlike JoinPath, this adds a separator even to a drive's root.
  const std::wstring below = L"\\" + JoinPath(folder_name, kSettingsFile);
  std::wstring local = folder + below;
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!ShellFolder(calls, CSIDL_COMMON_APPDATA, folder) ||
      calls.GetAttributes(ExtendedPath(local), &data)) {
    return local;
  }
  return folder + below;
}

bool LoadUserSettings(SystemCalls& calls, UserSettings& settings, std::wstring& settings_path,
                      std::wstring& error_text) {
  settings = {};
  error_text.clear();
  settings_path = ResolveSettingsPath(calls, kProductFolder);
  if (settings_path.empty()) {
    error_text = L"The Windows LocalAppData directory is unavailable.";
    return false;
  }
  if (QueryFileKind(calls, settings_path) != FileKind::RegularFile) {
    settings_path.clear();
    return true;
  }
  settings = ReadSettingsFile(calls, settings_path);
  return true;
}

std::wstring BuildExportCommandLabel(SystemCalls& calls, const UserSettings& settings) {
  return ExportCommandLabel(settings, [&](const std::wstring& path) {
    return QueryFileKindQuietly(calls, path) == FileKind::RegularFile;
  });
}

}  // namespace kestrune
