#include "export/prepare/bridge_project.h"

#include "common/text/text.h"

namespace kestrune {

std::wstring BridgeProjectHead() {
  return L"[Design]\nVersion=1.0\nHierarchyMode=0\n\n[Document1]\nDocumentPath=Bridge.PcbDoc\n"
         L"AnnotationEnabled=1\nDocumentUniqueId=BRDGPCB1\n\n";
}

std::wstring DependencySection(std::size_t number, std::wstring_view file_name) {
  const std::wstring n = Decimal(number);
  return (L"[Document" + n + L"]\nDocumentPath=").append(file_name) +
         L"\nAnnotationEnabled=1\nDocumentUniqueId=BRDGDEP" + n + L"\n\n";
}

std::wstring OutJobSection(std::size_t number) {
  return L"[Document" + Decimal(number) +
         L"]\nDocumentPath=Bridge.OutJob\nAnnotationEnabled=0\nDocumentUniqueId=BRDGOUT1\n";
}

bool BridgeFileNames::Take(std::wstring_view file_name) {
  return taken_.emplace(file_name.substr(0, file_name.find(L':'))).second;
}

}  // namespace kestrune
