#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/system/system_calls_win32.h"
#include "install/discovery/host_instance.h"

namespace kestrune {

/// Selects instances.
struct HostFilter {
  /// The major version; 0 for all.
  std::int32_t major = 0;
  /// The GUID (with braces, in any case); empty for all.
  std::wstring profile;
};

/// Finds the current user's host instances that match the filter: each installation that Windows
/// lists, joined by its GUID with the user's profile folder and registry branch. An entry in the
/// 32-bit registry view has precedence over one with the same GUID in the 64-bit view.
///
/// Changes nothing. Ignores entries that cannot be read or do not belong to the host; an instance
/// whose profile cannot be determined is listed with the reason. Throws Failure "status", with the
/// path and the GUID, when Windows cannot report whether a program file exists.
std::vector<HostInstance> DiscoverHostInstances(SystemCalls& calls, const HostFilter& filter);

}  // namespace kestrune
