#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "install/host_instance.h"
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

/// Returns an error text as a report shows it: the first 200 characters, with "..." after them when
/// there are more, and each control character, line breaks included, as "?". The file decides what
/// an error quotes, and it must neither fill a report nor add lines to it.
std::wstring ShownError(std::wstring_view error);

/// The report's lines about an instance: name and version, GUID, profile, registry branch.
std::wstring InstanceHeader(const HostInstance& instance);

/// The line that the operation log keeps about the instance that was changed.
std::wstring IdentityLine(const HostInstance& instance);

}  // namespace kestrune
