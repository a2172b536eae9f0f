#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "common/text/text.h"
#include "entry/command_line.h"
#include "tests/support/require_law.h"

namespace {

using namespace kestrune;

bool IsInstallerKeyword(const std::wstring& text) {
  return text == L"--install" || text == L"--update" || text == L"--uninstall" ||
         text == L"--status";
}

/// Checks the laws of each command against its arguments.
struct Laws {
  const std::vector<std::wstring>& arguments;

  void operator()(const UnknownCommand&) const {
    Require(arguments.size() < 2 || !IsInstallerKeyword(arguments[1]));
  }
  void operator()(const InvalidInstallerCommand&) const {
    Require(arguments.size() >= 3 && IsInstallerKeyword(arguments[1]));
  }
  void operator()(const InstallerOptions&) const {
    Require(arguments.size() >= 2 && IsInstallerKeyword(arguments[1]));
    // A valid option stays valid with another one after it.
    std::vector<std::wstring> longer = arguments;
    longer.insert(longer.end(), {L"--profile", L"--quiet", L"--quiet"});
    const Command command = ParseCommandLine(longer);
    const InstallerOptions* options = std::get_if<InstallerOptions>(&command);
    Require(options != nullptr && options->quiet && options->profile == L"--quiet");
    longer.emplace_back(L"--major");
    Require(std::holds_alternative<InvalidInstallerCommand>(ParseCommandLine(longer)));
  }
  void operator()(const PositionWindowCommand&) const {
    Require(arguments.size() == 4 && arguments[1] == L"--position-window");
  }
  void operator()(const PrepareCommand& command) const {
    Require(arguments[1] == L"--prepare" && command.source_pcb == arguments[2] &&
            command.dependency_list == arguments[3] && command.used_layer_manifest == arguments[4]);
    Require(command.status_path ? arguments.size() == 6 && *command.status_path == arguments[5]
                                : arguments.size() == 5);
  }
  void operator()(const WaitNativeCommand& command) const {
    Require(arguments.size() == 5 && arguments[1] == L"--wait-native" &&
            command.expected_path == arguments[2] && command.report_path == arguments[3] &&
            command.result_path == arguments[4]);
  }
  void operator()(const InspectCommand& command) const {
    Require(arguments.size() == 4 && arguments[1] == L"--inspect" &&
            command.archive == arguments[2] && command.result_path == arguments[3]);
  }
  void operator()(const FinalizeCommand& command) const {
    if (command.native_zip) {
      Require(arguments.size() == 4 && arguments[1] == L"--finalize" && !command.space &&
              command.native_zip == arguments[2] && command.source_pcb == arguments[3]);
      return;
    }
    Require(arguments[1] == L"--finalize-auto" && command.source_pcb == arguments[2]);
    Require(!command.space || (arguments.size() == 4 && *command.space > 0));
  }
};

}  // namespace

/// Parses the input: the arguments after the program's path, each with a line feed at its end.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::wstring> arguments = {L"C:\\Kestrune.exe"};
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  for (std::size_t end = 0; (end = rest.find('\n')) != std::string_view::npos;) {
    // Windows passes arguments as null-terminated texts.
    const std::string_view argument = rest.substr(0, end);
    arguments.push_back(WideFromUtf8(argument.substr(0, argument.find('\0'))));
    rest.remove_prefix(end + 1);
  }
  std::visit(Laws{arguments}, ParseCommandLine(arguments));
  return 0;
}
