#pragma once

#include <vector>

#include "install/host_instance.h"
#include "install/installer_options.h"

namespace kestrune {

/// Finds the current user's host instances that the options' version and GUID filters leave: each
/// installation known to Windows, joined by its GUID with the user's profile folder and registry
/// branch. The 32-bit registry view comes first and wins over the same GUID in the 64-bit view.
///
/// Nothing is changed. What cannot be read or does not belong to the host is passed over; an
/// instance whose profile cannot be told is listed with its reason. Throws Failure "status", with
/// the path and the GUID, when Windows cannot say whether a program file exists.
std::vector<HostInstance> DiscoverHostInstances(const InstallerOptions& options);

}  // namespace kestrune
