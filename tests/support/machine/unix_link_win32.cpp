#include "tests/support/machine/unix_link_win32.h"

#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {
namespace {

/// Returns the Unix name of a path, from Wine's own function.
std::wstring UnixName(const std::wstring& path) {
  using Translate = char*(CDECL*)(const wchar_t*);
  const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  const auto translate = reinterpret_cast<Translate>(
      reinterpret_cast<void*>(GetProcAddress(kernel, "wine_get_unix_file_name")));
  char* const name = translate != nullptr ? translate(path.c_str()) : nullptr;
  if (name == nullptr) {
    return {};
  }
  std::wstring result = WideFromUtf8(name);
  HeapFree(GetProcessHeap(), 0, name);
  return result;
}

/// Runs a Unix command. Wine returns no handle to wait for, so the caller must check for the
/// effect. The returned handle values must not be closed: they are invalid, or those of other
/// objects of this process.
void RunUnixCommand(const std::wstring& command, std::wstring arguments) {
  arguments.insert(0, command + L" ");
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  CreateProcessW((L"Z:\\bin\\" + command).c_str(), arguments.data(), nullptr, nullptr, FALSE, 0,
                 nullptr, nullptr, &startup, &process);
}

/// Returns whether the folder lists the name, also for a link without a target.
bool IsListed(const std::wstring& path) {
  const std::vector<std::wstring> names = NamesIn(std::wstring(ParentPath(path)));
  return std::find(names.begin(), names.end(), FileName(path)) != names.end();
}

bool WaitUntilListed(const std::wstring& path, bool listed) {
  for (int i = 0; i < 300 && IsListed(path) != listed; ++i) {
    Sleep(10);
  }
  return IsListed(path) == listed;
}

bool MakeLink(const std::wstring& link, const std::wstring& target, DWORD kind) {
  if (!RunsUnderWine()) {
    return CreateSymbolicLinkW(link.c_str(), target.c_str(),
                               kind | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE) != FALSE;
  }
  RunUnixCommand(L"ln", L"-s " + Quoted(UnixName(target)) + L" " + Quoted(UnixName(link)));
  return WaitUntilListed(link, true);
}

}  // namespace

bool MakeFileLink(const std::wstring& link, const std::wstring& target) {
  return MakeLink(link, target, 0);
}

bool MakeDirectoryLink(const std::wstring& link, const std::wstring& target) {
  return MakeLink(link, target, SYMBOLIC_LINK_FLAG_DIRECTORY);
}

void RemoveLink(const std::wstring& link) {
  if (!IsListed(link)) {
    return;
  }
  if (RunsUnderWine()) {
    // Wine would delete the link's target.
    RunUnixCommand(L"rm", L"-f " + Quoted(UnixName(link)));
    WaitUntilListed(link, false);
  } else if (!RemoveDirectoryW(link.c_str())) {
    DeleteFileW(link.c_str());
  }
}

}  // namespace kestrune
