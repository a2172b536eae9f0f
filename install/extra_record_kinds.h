#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// The record kinds in the comma-separated list `extra_records` of registration.ini, in its
/// order and each once, without the spaces and tabs around them.
///
/// Left out are the words that are keywords anyway (IsRcsKeyword), and names that a customization
/// file could not hold as one: empty ones, names with blanks, control characters, quotes or "=",
/// and names outside ASCII, for the file's bytes have no known encoding.
std::vector<std::string> ExtraRecordKinds(std::wstring_view extra_records);

}  // namespace kestrune
