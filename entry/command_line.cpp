#include "entry/command_line.h"

#include <algorithm>
#include <cwchar>
#include <limits>

namespace kestrune {
namespace {

std::optional<InstallerCommand> InstallerKeyword(const std::wstring& text) {
  if (text == L"--install") {
    return InstallerCommand::Install;
  }
  if (text == L"--update") {
    return InstallerCommand::Update;
  }
  if (text == L"--uninstall") {
    return InstallerCommand::Uninstall;
  }
  if (text == L"--status") {
    return InstallerCommand::Status;
  }
  return std::nullopt;
}

/// Returns the number at the beginning of the text, clamped to 32 bits; 0 when there is none.
std::int32_t ReadMajor(const std::wstring& text) {
  constexpr long long least = std::numeric_limits<std::int32_t>::min();
  constexpr long long most = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(
      std::clamp(std::wcstoll(text.c_str(), nullptr, 10), least, most));
}

/// Returns the argument as a number above 0, or nothing.
std::optional<std::int64_t> ReadSpace(const std::wstring& text) {
  wchar_t* end = nullptr;
  const long long value = std::wcstoll(text.c_str(), &end, 10);
  if (end == text.c_str() || end != text.c_str() + text.size() || value <= 0) {
    return std::nullopt;
  }
  return value;
}

Command ParseInstaller(InstallerCommand command, const std::vector<std::wstring>& arguments) {
  InstallerOptions options;
  options.command = command;
  for (std::size_t i = 2; i < arguments.size(); ++i) {
    const std::wstring& option = arguments[i];
    if (option == L"--quiet") {
      options.quiet = true;
      continue;
    }
    const bool takes_value = option == L"--major" || option == L"--profile" ||
                             option == L"--package" || option == L"--report";
    if (!takes_value || i + 1 == arguments.size()) {
      return InvalidInstallerCommand{};
    }
    const std::wstring& value = arguments[++i];
    if (option == L"--major") {
      options.major = ReadMajor(value);
    } else if (option == L"--profile") {
      options.profile = value;
    } else if (option == L"--package") {
      options.package = value;
    } else {
      options.report = value;
    }
  }
  return options;
}

Command ParseOtherMode(const std::vector<std::wstring>& arguments) {
  const std::size_t count = arguments.size();
  const std::wstring& keyword = arguments[1];
  if (count == 4 && keyword == L"--position-window") {
    return PositionWindowCommand{std::wcstoull(arguments[2].c_str(), nullptr, 10),
                                 std::wcstoull(arguments[3].c_str(), nullptr, 10)};
  }
  if ((count == 5 || count == 6) && keyword == L"--prepare") {
    PrepareCommand command{arguments[2], arguments[3], arguments[4], std::nullopt};
    if (count == 6) {
      command.status_path = arguments[5];
    }
    return command;
  }
  if (count == 5 && keyword == L"--wait-native") {
    return WaitNativeCommand{arguments[2], arguments[3], arguments[4]};
  }
  if (count == 4 && keyword == L"--inspect") {
    return InspectCommand{arguments[2], arguments[3]};
  }
  if ((count == 3 || count == 4) && keyword == L"--finalize-auto") {
    return FinalizeCommand{std::nullopt, arguments[2],
                           count == 4 ? ReadSpace(arguments[3]) : std::nullopt};
  }
  if (count == 4 && keyword == L"--finalize") {
    return FinalizeCommand{arguments[2], arguments[3], std::nullopt};
  }
  return UnknownCommand{};
}

}  // namespace

Command ParseCommandLine(const std::vector<std::wstring>& arguments) {
  if (arguments.size() < 2) {
    return UnknownCommand{};
  }
  if (const auto command = InstallerKeyword(arguments[1])) {
    return ParseInstaller(*command, arguments);
  }
  return ParseOtherMode(arguments);
}

}  // namespace kestrune
