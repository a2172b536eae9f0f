#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "install/host_instance.h"
#include "registration/rcs/toolbar_edit.h"

namespace kestrune {

/// Chooses the place of the button on the toolbars that the host itself defines.
///
/// `resource` is the installation's AdvPcb.rcs, bytes. The only place found is taken whatever the
/// host's version; of several, the first that belongs to the major version, so that a place
/// appended to `places` moves no button that stands; none when the version is not known (0 or less)
/// or no place of its generation is among them.
std::optional<altium_registration::ToolbarAnchor> ChooseAnchor(
    std::string_view resource, std::int32_t major, altium_registration::RcsKinds carried_kinds,
    std::span<const altium_registration::ToolbarAnchor> places =
        altium_registration::kToolbarAnchors);

/// The report's lines about an instance: name and version, GUID, profile, registry branch.
std::wstring InstanceHeader(const HostInstance& instance);

/// The line that the operation log keeps about the instance that was changed.
std::wstring IdentityLine(const HostInstance& instance);

}  // namespace kestrune
