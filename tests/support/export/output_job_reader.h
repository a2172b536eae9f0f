#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// Returns the text between separators; one empty part for an empty text.
std::vector<std::string> Split(std::string_view text, char separator);

/// Returns a small output job whose first output is ODB++: two copper layers, masks, overlays, the
/// keep-out layer and three numbered mechanical layers, some switched on and some off.
std::string SmallOutputJob();

}  // namespace kestrune
