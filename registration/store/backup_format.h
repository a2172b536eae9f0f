#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/log/clock_time.h"
#include "registration/transaction/registry_value.h"

namespace altium_registration {

/// Returns the bytes of registry.before.bin: the 25 characters "ALTIUM-REGISTRY-BEFORE-V1" and an
/// LF, the number of values, then for each value in the given order: the number of bytes of its
/// name, the name as UTF-16LE with its terminating null (counted), the registry type, the number of
/// data bytes, the data. All numbers are unsigned 32-bit little-endian.
std::string RegistryBackup(const std::vector<RegistryValue>& values);

/// Holds the content of instance.txt about the saved file and key.
struct InstanceRecord {
  std::wstring rcs_path;
  /// Below HKEY_CURRENT_USER.
  std::wstring registry_branch;
  std::uint32_t attributes = 0;
  /// The last-write time as a Windows file time, in its two halves.
  std::uint32_t write_time_high = 0;
  std::uint32_t write_time_low = 0;
};

/// Returns the bytes of instance.txt: UTF-8, lines ended by CR LF.
std::string InstanceText(const InstanceRecord& record);

/// Holds the time of a run in UTC, its process ID and the milliseconds since the system started.
struct RunStamp {
  kestrune::ClockTime utc;
  std::uint32_t process_id = 0;
  std::uint64_t tick = 0;
};

/// Returns the name of a run's backup directory: "yyyymmdd_hhmmss_mmm_<process>_<tick>".
std::wstring BackupDirectoryName(const RunStamp& stamp);

}  // namespace altium_registration
