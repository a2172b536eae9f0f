#include "export/settings/user_settings_win32.h"

#include <windows.h>
#include <shlobj.h>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/places/product_files.h"

namespace kestrune {
namespace {

constexpr DWORD kLongestValue = 32768;  // characters, including the terminating null
constexpr int kAbsentNumber = -1;

/// Returns false when the shell does not know the folder.
bool ShellFolder(int folder, std::wstring& path) {
  wchar_t buffer[MAX_PATH] = {};
  if (FAILED(SHGetFolderPathW(nullptr, folder, nullptr, 0, buffer))) {
    return false;
  }
  path = buffer;
  return true;
}

/// Reads the keys of one settings file.
class SettingsFile {
 public:
  explicit SettingsFile(const std::wstring& path) : path_(path), buffer_(kLongestValue, L'\0') {}

  std::wstring Text(const wchar_t* section, const wchar_t* key) {
    const DWORD length =
        GetPrivateProfileStringW(section, key, L"", buffer_.data(), kLongestValue, path_.c_str());
    return buffer_.substr(0, length);
  }

  /// Returns the current section's text, or that of the older section where it is absent or empty.
  std::wstring TargetText(const wchar_t* key) {
    std::wstring text = Text(L"Target", key);
    return text.empty() ? Text(L"AfterExport", key) : text;
  }

  bool Enabled() const {
    const int current = Number(L"Target", L"Enabled", kAbsentNumber);
    return (current < 0 ? Number(L"AfterExport", L"Enabled", 0) : current) != 0;
  }

 private:
  int Number(const wchar_t* section, const wchar_t* key, int absent) const {
    return static_cast<int>(GetPrivateProfileIntW(section, key, absent, path_.c_str()));
  }

  std::wstring path_;
  std::wstring buffer_;
};

/// Returns all keys of the settings file at its full path.
UserSettings ReadSettingsFile(const std::wstring& path) {
  SettingsFile file(path);
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

std::wstring ResolveSettingsPath(std::wstring_view folder_name) {
  std::wstring folder;
  if (!ShellFolder(CSIDL_LOCAL_APPDATA, folder) || folder.empty()) {
    return {};
  }
  // Not JoinPath: a drive's root gets a second separator here.
  const std::wstring below = L"\\" + JoinPath(folder_name, kSettingsFile);
  std::wstring local = folder + below;
  if (!ShellFolder(CSIDL_COMMON_APPDATA, folder) ||
      GetFileAttributesW(local.c_str()) != INVALID_FILE_ATTRIBUTES) {
    return local;
  }
  return folder + below;
}

bool LoadUserSettings(UserSettings& settings, std::wstring& settings_path,
                      std::wstring& error_text) {
  settings = {};
  error_text.clear();
  settings_path = ResolveSettingsPath(kProductFolder);
  if (settings_path.empty()) {
    error_text = L"The Windows LocalAppData directory is unavailable.";
    return false;
  }
  if (QueryFileKind(settings_path) != FileKind::RegularFile) {
    settings_path.clear();
    return true;
  }
  settings = ReadSettingsFile(settings_path);
  return true;
}

std::wstring BuildExportCommandLabel(const UserSettings& settings) {
  return ExportCommandLabel(settings, [](const std::wstring& path) {
    return QueryFileKindQuietly(path) == FileKind::RegularFile;
  });
}

}  // namespace kestrune
