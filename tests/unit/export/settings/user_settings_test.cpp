#include "export/settings/user_settings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrune {
namespace {

UserSettings Viewer() {
  UserSettings settings;
  settings.enabled = true;
  settings.program_name = L"Viewer";
  settings.executable_path = L"C:\\Viewer\\viewer.exe";
  return settings;
}

bool IsThere(const std::wstring&) {
  return true;
}

bool IsMissing(const std::wstring&) {
  return false;
}

TEST(ExportCommandLabel, NamesAnEnabledApplicationThatIsThere) {
  EXPECT_EQ(ExportCommandLabel(Viewer(), IsThere), L"Export PCB through Kestrune -> Viewer");
}

TEST(ExportCommandLabel, StaysPlainWhenAnyConditionFails) {
  const std::wstring plain = L"Export PCB through Kestrune";
  EXPECT_EQ(ExportCommandLabel({}, IsThere), plain);
  EXPECT_EQ(ExportCommandLabel(Viewer(), IsMissing), plain);
  UserSettings settings = Viewer();
  settings.enabled = false;
  EXPECT_EQ(ExportCommandLabel(settings, IsThere), plain);
  settings = Viewer();
  settings.program_name.clear();
  EXPECT_EQ(ExportCommandLabel(settings, IsThere), plain);
  settings = Viewer();
  settings.executable_path.clear();
  EXPECT_EQ(ExportCommandLabel(settings, IsThere), plain);
}

TEST(ExportCommandLabel, ChecksTheExecutableLast) {
  std::vector<std::wstring> asked;
  const IsFile note = [&asked](const std::wstring& path) {
    asked.push_back(path);
    return true;
  };
  UserSettings disabled = Viewer();
  disabled.enabled = false;
  UserSettings nameless = Viewer();
  nameless.program_name.clear();
  for (const UserSettings& settings : {UserSettings(), disabled, nameless}) {
    ExportCommandLabel(settings, note);
  }
  EXPECT_TRUE(asked.empty());
  ExportCommandLabel(Viewer(), note);
  EXPECT_EQ(asked, std::vector<std::wstring>{L"C:\\Viewer\\viewer.exe"});
}

}  // namespace
}  // namespace kestrune
