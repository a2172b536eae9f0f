#pragma once

#include <string>
#include <vector>

namespace kestrune {

/// Reads the record kinds that the user lets through (see ExtraRecordKinds): the key
/// `ExtraRecords` in the section `Registration` of `<local_app_data>\Kestrune\registration.ini`.
/// A file or key that is absent or cannot be read names none.
///
/// `local_app_data` is the user's own, as LocalAppDataDirectory gives it. No file for all users
/// counts: any local user can create one, and must not widen what is accepted in another's profile.
std::vector<std::string> ReadExtraRecordKinds(const std::wstring& local_app_data);

}  // namespace kestrune
