#include "registration/store/backup_format.h"

#include "common/text/text.h"

namespace altium_registration {
namespace {

constexpr std::string_view kRegistryHeader = "ALTIUM-REGISTRY-BEFORE-V1\n";
constexpr unsigned kByteMask = 0xFFU;

void AppendUnsigned(std::string& bytes, std::size_t number, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    bytes += static_cast<char>((number >> (8 * i)) & kByteMask);
  }
}

void AppendUnsigned32(std::string& bytes, std::size_t number) {
  AppendUnsigned(bytes, number, 4);
}

}  // namespace

std::string RegistryBackup(const std::vector<RegistryValue>& values) {
  std::string bytes(kRegistryHeader);
  AppendUnsigned32(bytes, values.size());
  for (const RegistryValue& value : values) {
    AppendUnsigned32(bytes, 2 * (value.name.size() + 1));
    for (const wchar_t unit : value.name) {
      AppendUnsigned(bytes, static_cast<std::uint16_t>(unit), 2);
    }
    AppendUnsigned(bytes, 0, 2);
    AppendUnsigned32(bytes, value.type);
    AppendUnsigned32(bytes, value.data.size());
    bytes.append(reinterpret_cast<const char*>(value.data.data()), value.data.size());
  }
  return bytes;
}

std::string InstanceText(const InstanceRecord& record) {
  return "RCS=" + kestrune::Utf8FromWide(record.rcs_path) + "\r\nRegistry=HKCU\\" +
         kestrune::Utf8FromWide(record.registry_branch) +
         "\r\nAttributes=" + std::to_string(record.attributes) +
         "\r\nWriteTime=" + std::to_string(record.write_time_high) + ":" +
         std::to_string(record.write_time_low) + "\r\n";
}

std::wstring BackupDirectoryName(const RunStamp& stamp) {
  return kestrune::ClockStamp(stamp.utc) + L"_" + std::to_wstring(stamp.process_id) + L"_" +
         std::to_wstring(stamp.tick);
}

}  // namespace altium_registration
