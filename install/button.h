#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/toolbar_edit.h"

namespace kestrune {

/// Chooses the button's place on the toolbars that the host defines.
///
/// `resource` is the content of the installation's AdvPcb.rcs. If only one of `places` exists
/// there, it is chosen for every version of the host. Of several, the last one of the kind for the
/// major version is chosen. Returns none when the version is unknown (0 or less) or there is no
/// place of that kind. `extra_record_kinds` are accepted as in RcsOptions.
std::optional<altium_registration::ToolbarAnchor> ChooseAnchor(
    std::string_view resource, std::int32_t major,
    const std::vector<std::string>& extra_record_kinds,
    std::span<const altium_registration::ToolbarAnchor> places =
        altium_registration::kToolbarAnchors);

/// Returns the file name of the button's image, one of those in package/Assets: the legacy one for
/// the older toolbar; for the newer one (`active_bar`) the standard image, or the small one for the
/// single version and edition that needs it.
std::wstring ChooseToolbarImage(std::wstring_view version_text, bool active_bar,
                                std::wstring_view display_name);

}  // namespace kestrune
