#include "install/installer_report.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

TEST(InstallerReport, CollectsLinesUnderTheWorstCode) {
  InstallerReport report(InstallerCommand::Install);
  report.Append(L"one\n");
  report.Skip(L"two");
  report.Fail(L"three");
  report.Append(L"four\n");
  const InstallerResult result = report.Take();
  EXPECT_EQ(result.code, 40);
  EXPECT_EQ(result.message, L"one\nSkipped: two\nFAILED: three\nfour\n");
}

TEST(InstallerReport, AProblemHasTheCommandsCode) {
  for (const InstallerCommand command : {InstallerCommand::Install, InstallerCommand::Update,
                                         InstallerCommand::Uninstall, InstallerCommand::Status}) {
    InstallerReport report(command);
    EXPECT_EQ(report.Take().code, 0);
    report.SetFailureCode();
    EXPECT_EQ(report.Take().code, command == InstallerCommand::Status ? 10 : 40);
  }
}

TEST(InstallerReport, EndsWithItsOwnCode) {
  InstallerReport report(InstallerCommand::Status);
  report.End(kHostRuns, L"text");
  const InstallerResult ended = report.Take();
  EXPECT_EQ(ended.code, 30);
  EXPECT_EQ(ended.message, L"text");
  report.End(kNoInstance, L"");
  EXPECT_EQ(report.Take().code, 20);
  InstallerReport without_memory(InstallerCommand::Status);
  without_memory.Append(L"one\n");
  without_memory.FailWithoutMemory();
  EXPECT_EQ(without_memory.Take().code, 10);
  without_memory.EndWithoutMemory();
  const InstallerResult result = without_memory.Take();
  EXPECT_EQ(result.code, 40);
  EXPECT_TRUE(result.message.ends_with(L"Not enough memory."));
}

TEST(ShownError, KeepsAnOrdinaryErrorAsItIs) {
  EXPECT_EQ(ShownError(L""), L"");
  EXPECT_EQ(ShownError(L"Unknown RCS record: \u00CF'~ \u00A0\u00FF"),
            L"Unknown RCS record: \u00CF'~ \u00A0\u00FF");
  EXPECT_EQ(ShownError(std::wstring(200, L'x')), std::wstring(200, L'x'));
}

TEST(ShownError, IsCutAfterTwoHundredCharacters) {
  EXPECT_EQ(ShownError(std::wstring(201, L'x')), std::wstring(200, L'x') + L"...");
  EXPECT_EQ(ShownError(std::wstring(8'000'000, L'x')).size(), 203U);
}

TEST(ShownError, ReplacesControlCharactersAndLineBreaks) {
  std::wstring controls;
  for (wchar_t unit = 0; unit < L' '; ++unit) {
    controls += unit;
  }
  controls += L"\x7F";
  controls += L"\x80";
  controls += L"\x85";
  controls += L"\x9F";
  EXPECT_EQ(ShownError(L"a" + controls + L"b"), L"a" + std::wstring(36, L'?') + L"b");
}

TEST(InstanceTexts, NameVersionGuidProfileAndBranch) {
  HostInstance instance;
  instance.display_name = L"Altium Designer";
  instance.version_text = L"24.1.2.44";
  instance.guid = L"{01234567-89ab-cdef-0123-456789abcdef}";
  instance.profile_directory = L"C:\\P";
  instance.registry_branch = L"Software\\Altium\\A";
  EXPECT_EQ(InstanceHeader(instance),
            L"Altium Designer 24.1.2.44\nGUID: {01234567-89ab-cdef-0123-456789abcdef}\n"
            L"Profile: C:\\P\nHKCU: Software\\Altium\\A\n");
  EXPECT_EQ(IdentityLine(instance),
            L"Product=Altium Designer Version=24.1.2.44 "
            L"GUID={01234567-89ab-cdef-0123-456789abcdef}");
}

TEST(InstanceTexts, WhatIsNotKnownStaysEmpty) {
  EXPECT_EQ(InstanceHeader({}), L" \nGUID: \nProfile: \nHKCU: \n");
}

}  // namespace
}  // namespace kestrune
