#include "registration/store/backup_format.h"

#include <gtest/gtest.h>

#include <string>

#include "registration/transaction/global_projects.h"

namespace altium_registration {
namespace {

using namespace std::string_literals;

TEST(RegistryBackup, AbsentKeyIsACountOfZero) {
  const std::string bytes = RegistryBackup({});
  EXPECT_EQ(bytes, "ALTIUM-REGISTRY-BEFORE-V1\n\0\0\0\0"s);
  EXPECT_EQ(bytes.size(), 30U);
}

TEST(RegistryBackup, ValuesKeepOrderAndBytes) {
  const std::vector<RegistryValue> values = {
      {L"Item1", kRegistryText, TextData(L"A")},
      {L"", 3, {std::byte{0xFF}}},
      {L"\x00E4"
       L"\xD83D",
       0xFFFF0001,
       {}},
  };
  EXPECT_EQ(RegistryBackup(values),
            "ALTIUM-REGISTRY-BEFORE-V1\n"
            "\x03\0\0\0"
            "\x0C\0\0\0I\0t\0e\0m\0"
            "1\0\0\0"
            "\x01\0\0\0\x04\0\0\0A\0\0\0"
            "\x02\0\0\0\0\0"
            "\x03\0\0\0\x01\0\0\0\xFF"
            "\x06\0\0\0\xE4\0\x3D\xD8\0\0"
            "\x01\0\xFF\xFF\0\0\0\0"s);
}

TEST(RegistryBackup, LongLengthsAreLittleEndian) {
  const RegistryValue large{L"x", 3, std::vector<std::byte>(0x1'02'03)};
  EXPECT_EQ(RegistryBackup({large}).substr(30, 16),
            "\x04\0\0\0x\0\0\0"
            "\x03\0\0\0\x03\x02\x01\0"s);
}

TEST(InstanceText, NamesFileKeyAttributesAndTime) {
  EXPECT_EQ(InstanceText({L"C:\\Users\\J\u00F6rg\\DXP.RCS", L"Software\\Altium\\X {1}", 32,
                          31'000'000, 4'294'967'295}),
            "RCS=C:\\Users\\J\xC3\xB6rg\\DXP.RCS\r\nRegistry=HKCU\\Software\\Altium\\X {1}\r\n"
            "Attributes=32\r\nWriteTime=31000000:4294967295\r\n");
}

TEST(BackupDirectoryName, PadsTheDateAndNothingElse) {
  EXPECT_EQ(BackupDirectoryName({{2026, 3, 7, 9, 5, 2, 4}, 17, 5'000'000'000}),
            L"20260307_090502_004_17_5000000000");
}

}  // namespace
}  // namespace altium_registration
