#pragma once

#include <string>
#include <vector>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Holds the user's settings for a registration.
struct RegistrationSettings {
  /// The button's hint as bytes in the ANSI code page.
  std::string hint;
  /// The extra record kinds that the user accepts (see ExtraRecordKinds).
  std::vector<std::string> extra_record_kinds;
};

/// Reads the hint from settings.ini, and the record kinds from the key `ExtraRecords` in the
/// section `Registration` of `<local_app_data>\Kestrune\registration.ini`. A setting that is absent
/// or unreadable keeps its default. Throws Failure "status" as LoadUserSettings does.
///
/// `local_app_data` is that of LocalAppDataDirectory. A registration.ini for all users is ignored:
/// any local user could create one, and must not extend what is accepted in another user's profile.
RegistrationSettings ReadRegistrationSettings(SystemCalls& calls,
                                              const std::wstring& local_app_data);

}  // namespace kestrune
