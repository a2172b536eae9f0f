#include "install/registration_settings_win32.h"

#include <windows.h>

#include "common/text/path.h"
#include "common/places/product_files.h"
#include "common/text/text_win32.h"
#include "export/settings/user_settings_win32.h"
#include "install/extra_record_kinds.h"

namespace kestrune {
namespace {

/// Returns the command's label with the name of the user's application, or the plain label when the
/// code page cannot represent that name.
std::string HintFor(const UserSettings& user) {
  std::string hint;
  if (!AnsiFromWide(BuildExportCommandLabel(user), hint)) {
    hint = AnsiFromWideLossy(BuildExportCommandLabel({}));
  }
  return hint;
}

/// Returns the record kinds of registration.ini; none when the file or the key is absent or
/// unreadable.
std::vector<std::string> ReadExtraRecordKinds(const std::wstring& local_app_data) {
  constexpr DWORD kLongestValue = 32768;  // characters, including the terminating null
  const std::wstring path = JoinPath({local_app_data, kProductFolder, kRegistrationSettingsFile});
  std::wstring value(kLongestValue, L'\0');
  value.resize(GetPrivateProfileStringW(L"Registration", L"ExtraRecords", L"", value.data(),
                                        kLongestValue, path.c_str()));
  return ExtraRecordKinds(value);
}

}  // namespace

RegistrationSettings ReadRegistrationSettings(const std::wstring& local_app_data) {
  UserSettings user;
  std::wstring path;
  std::wstring error_text;
  if (!LoadUserSettings(user, path, error_text)) {
    user = {};
  }
  RegistrationSettings settings;
  settings.hint = HintFor(user);
  settings.extra_record_kinds = ReadExtraRecordKinds(local_app_data);
  return settings;
}

}  // namespace kestrune
