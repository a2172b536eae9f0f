#include "tests/support/samples_win32.h"

#include <windows.h>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {
namespace {

/// Returns a path of the build machine as a Windows path: under Wine it is on drive Z.
std::wstring AsWindowsPath(std::wstring path) {
  if (path.starts_with(L"/")) {
    path.insert(0, L"Z:");
  }
  for (wchar_t& unit : path) {
    unit = unit == L'/' ? L'\\' : unit;
  }
  return path;
}

}  // namespace

std::wstring SamplesFolder() {
  std::wstring named(32768, L'\0');
  named.resize(
      GetEnvironmentVariableW(L"KESTRUNE_SAMPLES", named.data(), static_cast<DWORD>(named.size())));
  const std::wstring folder =
      AsWindowsPath(named.empty() ? WidenBytes(KESTRUNE_SOURCE_DIR "/../shared/samples") : named);
  return Exists(folder) ? folder : L"";
}

std::vector<std::wstring> SampleFiles(std::wstring_view kind) {
  const std::wstring folder = JoinPath(SamplesFolder(), kind);
  std::vector<std::wstring> paths;
  for (const std::wstring& name : NamesIn(folder)) {
    paths.push_back(JoinPath(folder, name));
  }
  return paths;
}

}  // namespace kestrune
