#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// Returns the record kinds in the comma-separated list `extra_records` of registration.ini, in
/// their order, each once, without surrounding spaces and tabs.
///
/// Drops words that are keywords anyway (IsRcsKeyword), and names that cannot be keywords: empty
/// ones, names with blanks, control characters, quotes or "=", and names outside ASCII, since the
/// encoding of the file is unknown.
std::vector<std::string> ExtraRecordKinds(std::wstring_view extra_records);

}  // namespace kestrune
