#include "entry/command_line.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

Command Parse(std::vector<std::wstring> arguments) {
  arguments.insert(arguments.begin(), L"C:\\Kestrune.exe");
  return ParseCommandLine(arguments);
}

template <class T>
bool Is(const Command& command) {
  return std::holds_alternative<T>(command);
}

TEST(CommandLine, AnEmptyLineIsNoCommand) {
  EXPECT_TRUE(Is<UnknownCommand>(ParseCommandLine({})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"board.PcbDoc"})));
}

TEST(CommandLine, InstallerKeywordsMapToTheirCommands) {
  const std::pair<const wchar_t*, InstallerCommand> rows[] = {
      {L"--install", InstallerCommand::Install},
      {L"--update", InstallerCommand::Update},
      {L"--uninstall", InstallerCommand::Uninstall},
      {L"--status", InstallerCommand::Status}};
  for (const auto& [keyword, expected] : rows) {
    const Command command = Parse({keyword});
    ASSERT_TRUE(Is<InstallerOptions>(command));
    const auto& options = std::get<InstallerOptions>(command);
    EXPECT_EQ(options.command, expected);
    EXPECT_EQ(options.major, 0);
    EXPECT_EQ(options.profile, L"");
    EXPECT_EQ(options.package, L"");
    EXPECT_EQ(options.report, std::nullopt);
    EXPECT_FALSE(options.quiet);
  }
}

TEST(CommandLine, KeywordsAreComparedWholeAndWithCase) {
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--Install"})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--install="})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--Prepare", L"a", L"b", L"c"})));
  EXPECT_TRUE(Is<InvalidInstallerCommand>(Parse({L"--install", L"--Quiet"})));
}

TEST(CommandLine, InstallerKeywordsCountOnlyAsFirstArgument) {
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--quiet", L"--install"})));
  EXPECT_TRUE(Is<InvalidInstallerCommand>(Parse({L"--install", L"--update"})));
}

TEST(CommandLine, OptionsComeInAnyOrderLastWins) {
  const Command command = Parse({L"--status", L"--profile", L"A", L"--quiet", L"--major", L"24",
                                 L"--package", L"P", L"--report", L"R", L"--profile", L"B",
                                 L"--major", L"25", L"--package", L"Q", L"--report", L""});
  ASSERT_TRUE(Is<InstallerOptions>(command));
  const auto& options = std::get<InstallerOptions>(command);
  EXPECT_TRUE(options.quiet);
  EXPECT_EQ(options.major, 25);
  EXPECT_EQ(options.profile, L"B");
  EXPECT_EQ(options.package, L"Q");
  EXPECT_EQ(options.report, L"");
}

TEST(CommandLine, OptionTakesTheNextArgument) {
  const auto profile = std::get<InstallerOptions>(Parse({L"--install", L"--profile", L"--quiet"}));
  EXPECT_EQ(profile.profile, L"--quiet");
  EXPECT_FALSE(profile.quiet);
  const auto major = std::get<InstallerOptions>(Parse({L"--install", L"--major", L"--quiet"}));
  EXPECT_EQ(major.major, 0);
  EXPECT_FALSE(major.quiet);
}

TEST(CommandLine, MissingValueOrUnknownOptionIsInvalid) {
  for (const wchar_t* option :
       {L"--major", L"--profile", L"--package", L"--report", L"--bogus", L"x", L""}) {
    EXPECT_TRUE(Is<InvalidInstallerCommand>(Parse({L"--install", L"--quiet", option})));
  }
}

TEST(CommandLine, MajorReadsLeadingDigitsAndClamps) {
  const std::pair<const wchar_t*, std::int32_t> rows[] = {{L"24", 24},
                                                          {L" \t24", 24},
                                                          {L"+24", 24},
                                                          {L"-3", -3},
                                                          {L"24.1", 24},
                                                          {L"x", 0},
                                                          {L"", 0},
                                                          {L"2147483647", 2147483647},
                                                          {L"2147483648", 2147483647},
                                                          {L"-99999999999", -2147483647 - 1},
                                                          {L"99999999999999999999999", 2147483647}};
  for (const auto& [text, expected] : rows) {
    EXPECT_EQ(std::get<InstallerOptions>(Parse({L"--install", L"--major", text})).major, expected);
  }
}

TEST(CommandLine, PrepareTakesThreeOrFourArguments) {
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--prepare", L"a", L"b"})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--prepare", L"a", L"b", L"c", L"d", L"e"})));
  const auto plain = std::get<PrepareCommand>(Parse({L"--prepare", L"a", L"b", L"c"}));
  EXPECT_EQ(plain.source_pcb, L"a");
  EXPECT_EQ(plain.dependency_list, L"b");
  EXPECT_EQ(plain.used_layer_manifest, L"c");
  EXPECT_FALSE(plain.status_path.has_value());
  EXPECT_EQ(std::get<PrepareCommand>(Parse({L"--prepare", L"a", L"b", L"c", L"d"})).status_path,
            L"d");
}

TEST(CommandLine, WaitNativeTakesThreeArguments) {
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--wait-native", L"a", L"b"})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--wait-native", L"a", L"b", L"c", L"d"})));
  const auto wait = std::get<WaitNativeCommand>(Parse({L"--wait-native", L"a", L"b", L"c"}));
  EXPECT_EQ(wait.expected_path, L"a");
  EXPECT_EQ(wait.report_path, L"b");
  EXPECT_EQ(wait.result_path, L"c");
}

TEST(CommandLine, InspectTakesTwoArguments) {
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--inspect", L"a"})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--inspect", L"a", L"b", L"c"})));
  const auto inspect = std::get<InspectCommand>(Parse({L"--inspect", L"a", L"b"}));
  EXPECT_EQ(inspect.archive, L"a");
  EXPECT_EQ(inspect.result_path, L"b");
}

TEST(CommandLine, FinalizeTakesTwoArguments) {
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--finalize", L"a"})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--finalize", L"a", L"b", L"c"})));
  const auto finalize = std::get<FinalizeCommand>(Parse({L"--finalize", L"z", L"b"}));
  EXPECT_EQ(finalize.native_zip, L"z");
  EXPECT_EQ(finalize.source_pcb, L"b");
  EXPECT_FALSE(finalize.space.has_value());
}

TEST(CommandLine, FinalizeAutoTakesOnlyPositiveSpacing) {
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--finalize-auto"})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--finalize-auto", L"D", L"1", L"2"})));
  const auto automatic = std::get<FinalizeCommand>(Parse({L"--finalize-auto", L"D"}));
  EXPECT_FALSE(automatic.native_zip.has_value());
  EXPECT_EQ(automatic.source_pcb, L"D");
  EXPECT_FALSE(automatic.space.has_value());
  const auto space = [](const wchar_t* text) {
    return std::get<FinalizeCommand>(Parse({L"--finalize-auto", L"D", text})).space;
  };
  EXPECT_EQ(space(L"50000"), 50000);
  EXPECT_EQ(space(L" +7"), 7);
  EXPECT_EQ(space(L"99999999999999999999"), 9223372036854775807);
  for (const wchar_t* text : {L"12x", L"-5", L"0", L"", L"7 ", L"x", L"0x10", L"1.5"}) {
    EXPECT_FALSE(space(text).has_value()) << text;
  }
}

TEST(CommandLine, PositionWindowReadsDecimalHandles) {
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--position-window", L"1"})));
  EXPECT_TRUE(Is<UnknownCommand>(Parse({L"--position-window", L"1", L"2", L"3"})));
  const auto handles = [](const wchar_t* target) {
    return std::get<PositionWindowCommand>(Parse({L"--position-window", target, L"7"}));
  };
  EXPECT_EQ(handles(L"65552").target, 65552U);
  EXPECT_EQ(handles(L"65552").reference, 7U);
  EXPECT_EQ(handles(L"0x10").target, 0U);
  EXPECT_EQ(handles(L"-1").target, 18446744073709551615ULL);
  EXPECT_EQ(handles(L"18446744071562133792").target, 18446744071562133792ULL);
}

}  // namespace
}  // namespace kestrune
