#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/system/system_calls_win32.h"
#include "install/discovery/host_instance.h"

namespace kestrune {

/// Which instances are wanted.
struct HostFilter {
  /// Only those of this major version; 0 for all.
  std::int32_t major = 0;
  /// Only the one with this GUID (with braces, any case); empty for all.
  std::wstring profile;
};

/// Finds the current user's host instances that the filter leaves: each
/// installation known to Windows, joined by its GUID with the user's profile folder and registry
/// branch. The 32-bit registry view comes first and wins over the same GUID in the 64-bit view.
///
/// Nothing is changed. What cannot be read or does not belong to the host is passed over; an
/// instance whose profile cannot be told is listed with its reason. Throws Failure "status", with
/// the path and the GUID, when Windows cannot say whether a program file exists.
std::vector<HostInstance> DiscoverHostInstances(SystemCalls& calls, const HostFilter& filter);

}  // namespace kestrune
