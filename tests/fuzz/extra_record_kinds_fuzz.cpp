// Input: the setting with the extra record kinds. Laws: a customization file with one record of
// each resulting kind is accepted with these kinds, and refused at the first of them without; no
// kind results twice.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/text/text.h"
#include "install/extra_record_kinds.h"
#include "registration/rcs/rcs.h"
#include "tests/support/require_law.h"

using altium_registration::Rcs;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string> kinds = kestrune::ExtraRecordKinds(kestrune::WidenBytes(input));
  Require(std::set<std::string>(kinds.begin(), kinds.end()).size() == kinds.size());
  std::string text;
  for (const std::string& kind : kinds) {
    text += kind + " Id" + std::to_string(text.size()) + " A='1' End\n";
  }
  Rcs rcs;
  std::wstring error;
  Require(Rcs::Parse(std::string(text), {.extra_record_kinds = kinds}, rcs, error));
  Require(rcs.nodes().size() == kinds.size());
  if (!kinds.empty()) {
    Require(!Rcs::Parse(std::move(text), {}, rcs, error));
    Require(error == L"Unknown RCS record: " + kestrune::WidenBytes(kinds.front()));
  }
  return 0;
}
