#pragma once

#include <string>
#include <vector>

namespace kestrune {

/// What the user's settings say about a registration.
struct RegistrationSettings {
  /// The button's hint as bytes in the ANSI code page.
  std::string hint;
  /// The record kinds that the user lets through (see ExtraRecordKinds).
  std::vector<std::string> extra_record_kinds;
};

/// Reads the hint out of settings.ini, and the record kinds out of the key `ExtraRecords` in the
/// section `Registration` of `<local_app_data>\\Kestrune\\registration.ini`. What is absent or
/// cannot be read leaves its default. Throws Failure "status" as LoadUserSettings does.
///
/// `local_app_data` is the user's own, as LocalAppDataDirectory gives it. No registration.ini for
/// all users counts: any local user can create one, and must not widen what is accepted in
/// another's profile.
RegistrationSettings ReadRegistrationSettings(const std::wstring& local_app_data);

}  // namespace kestrune
