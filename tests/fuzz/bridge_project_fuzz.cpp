#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/text/ordinal.h"
#include "common/text/text.h"
#include "export/prepare/bridge_project.h"
#include "export/prepare/dependency_list.h"
#include "tests/support/require_law.h"

namespace {

/// Returns the documents of a project as the host reads them: the path of each [DocumentN], in
/// order.
std::vector<std::wstring> ReadDocuments(std::wstring_view project) {
  constexpr std::wstring_view key = L"DocumentPath=";
  std::vector<std::wstring> paths;
  std::wstring section;
  while (!project.empty()) {
    const std::size_t end = std::min(project.find(L"\r\n"), project.size());
    const std::wstring_view line = project.substr(0, end);
    project.remove_prefix(std::min(end + 2, project.size()));
    if (line.starts_with(L"[Document") && line.ends_with(L"]")) {
      section = line;
    } else if (line.starts_with(key)) {
      paths.emplace_back(line.substr(key.size()));
      Require(section == L"[Document" + kestrune::Decimal(paths.size()) + L"]");
    }
  }
  return paths;
}

}  // namespace

/// Builds a project from the input, a list of file names. Names that are invalid on Windows are
/// dropped; the part after a colon names a stream of the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  kestrune::BridgeFileNames names;
  std::wstring project = kestrune::BridgeProjectHead();
  std::vector<std::wstring> expected = {L"Bridge.PcbDoc"};
  std::vector<std::wstring> files = {L"Bridge.PcbDoc", L"Bridge.PrjPcb", L"Bridge.OutJob",
                                     L"ready.txt"};
  std::size_t number = kestrune::kFirstDependency;
  for (const std::wstring& name : kestrune::ParseDependencyList(bytes, kestrune::WidenBytes)) {
    if (std::any_of(name.begin(), name.end(), [](wchar_t unit) { return unit < L' '; })) {
      continue;
    }
    const std::wstring file = name.substr(0, name.find(L':'));
    const bool is_taken = std::any_of(files.begin(), files.end(), [&](const std::wstring& old) {
      return kestrune::EqualIgnoringCase(old, file);
    });
    Require(names.Take(name) == !is_taken);
    if (is_taken) {
      continue;
    }
    files.push_back(file);
    project += kestrune::DependencySection(number++, name);
    expected.push_back(name);
  }
  project += kestrune::OutJobSection(number);
  expected.emplace_back(L"Bridge.OutJob");
  Require(ReadDocuments(kestrune::WithWindowsLineEnds(project)) == expected);
  return 0;
}
