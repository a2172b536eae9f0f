#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/toolbar_edit.h"

namespace kestrune {

/// Chooses the place of the button on the toolbars that the host itself defines.
///
/// `resource` is the installation's AdvPcb.rcs, bytes. The only place found is taken whatever the
/// host's version; of several, the last one of the kind that belongs to the major version; none
/// when the version is not known (0 or less) or no place of that kind is among them.
/// `extra_record_kinds` are let through as in RcsOptions.
std::optional<altium_registration::ToolbarAnchor> ChooseAnchor(
    std::string_view resource, std::int32_t major,
    const std::vector<std::string>& extra_record_kinds,
    std::span<const altium_registration::ToolbarAnchor> places =
        altium_registration::kToolbarAnchors);

/// Returns the file name of the button's image, one of those in package/Assets: the legacy one for
/// the older toolbar; for the newer one (`active_bar`) the usual image, or the small one for the
/// single version and edition that needs it.
std::wstring ChooseToolbarImage(std::wstring_view version_text, bool active_bar,
                                std::wstring_view display_name);

}  // namespace kestrune
