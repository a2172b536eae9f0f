// Input: the setting that names further kinds of record. Laws: a customization file with one record
// of each kind that comes out is accepted when these kinds are let through, and is refused at the
// first of them when they are not; no kind comes out twice.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"
#include "install/extra_record_kinds.h"
#include "registration/rcs/rcs_document.h"

namespace {

using altium_registration::RcsDocument;

void Require(bool law) {
  if (!law) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string> kinds = kestrune::ExtraRecordKinds(kestrune::WidenBytes(input));
  Require(std::set<std::string>(kinds.begin(), kinds.end()).size() == kinds.size());
  std::string text;
  for (const std::string& kind : kinds) {
    text += kind + " Id" + std::to_string(text.size()) + " A='1' End\n";
  }
  const std::vector<std::string_view> carried(kinds.begin(), kinds.end());
  RcsDocument document;
  std::wstring error;
  Require(RcsDocument::Parse(text, {.carried_kinds = carried}, document, error));
  Require(document.records().size() == kinds.size());
  if (!kinds.empty()) {
    Require(!RcsDocument::Parse(text, {}, document, error));
    Require(error == L"Unknown RCS record: " + kestrune::WidenBytes(kinds.front()));
  }
  return 0;
}
