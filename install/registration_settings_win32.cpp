#include "install/registration_settings_win32.h"

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/places/product_files.h"
#include "common/text/text_win32.h"
#include "export/settings/user_settings_win32.h"
#include "install/extra_record_kinds.h"

namespace kestrune {
namespace {

/// Returns the command's label with the name of the user's application, or the plain label when the
/// code page cannot represent that name.
std::string HintFor(SystemCalls& calls, const UserSettings& user) {
  std::string hint;
  if (!AnsiFromWide(BuildExportCommandLabel(calls, user), hint)) {
    hint = AnsiFromWideLossy(BuildExportCommandLabel(calls, {}));
  }
  return hint;
}

/// Returns the record kinds of registration.ini; none when the file or the key is absent or
/// unreadable.
std::vector<std::string> ReadExtraRecordKinds(SystemCalls& calls,
                                              const std::wstring& local_app_data) {
  const std::wstring path = JoinPath({local_app_data, kProductFolder, kRegistrationSettingsFile});
  return ExtraRecordKinds(ReadProfileText(calls, path, L"Registration", L"ExtraRecords"));
}

}  // namespace

RegistrationSettings ReadRegistrationSettings(SystemCalls& calls,
                                              const std::wstring& local_app_data) {
  UserSettings user;
  std::wstring path;
  std::wstring error_text;
  if (!LoadUserSettings(calls, user, path, error_text)) {
    user = {};
  }
  RegistrationSettings settings;
  settings.hint = HintFor(calls, user);
  settings.extra_record_kinds = ReadExtraRecordKinds(calls, local_app_data);
  return settings;
}

}  // namespace kestrune
