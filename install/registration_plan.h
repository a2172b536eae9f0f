#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "install/host_instance.h"
#include "registration/toolbar_edit.h"

namespace kestrune {

/// Chooses the place of the button on the toolbars that the host itself defines.
///
/// `resource` is the installation's AdvPcb.rcs, bytes. The only place found is taken whatever the
/// host's version; of several, the one that belongs to the major version; none when the version is
/// not known (0 or less) or its place is not among them.
std::optional<altium_registration::ToolbarAnchor> ChooseAnchor(
    std::string_view resource, std::int32_t major, altium_registration::RcsKinds carried_kinds);

/// The report's lines about an instance: name and version, GUID, profile, registry branch.
std::wstring InstanceHeader(const HostInstance& instance);

/// The line that the operation log keeps about the instance that was changed.
std::wstring IdentityLine(const HostInstance& instance);

}  // namespace kestrune
