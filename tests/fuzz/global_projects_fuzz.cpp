// The input encodes a list of registry values: for each a control byte, a name and data. Plans must
// obey the laws of a plan for any list.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "registration/transaction/global_projects.h"
#include "tests/support/registration/plan_laws.h"

namespace {

using namespace altium_registration;

constexpr std::wstring_view kProject = L"C:\\K\\a.PrjScr";

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), end_(data + size) {}

  bool AtEnd() const { return data_ == end_; }
  std::uint8_t Byte() { return AtEnd() ? std::uint8_t{0} : *data_++; }

  Values List() {
    Values values;
    while (!AtEnd() && values.size() < 24) {
      values.push_back(Value());
    }
    return values;
  }

 private:
  RegistryValue Value() {
    const std::uint8_t control = Byte();
    RegistryValue value;
    value.name = (control & 1) != 0 ? L"Item" : (control & 2) != 0 ? L"iTeM" : L"";
    for (unsigned i = control >> 2 & 7; i > 0; --i) {
      const std::uint8_t byte = Byte();
      value.name.push_back(byte < 128 ? static_cast<wchar_t>(L'0' + byte % 10)
                                      : static_cast<wchar_t>(byte - 128 + 0x0410));
    }
    value.type = (control & 32) != 0 ? Byte() : kRegistryText;
    if ((control & 64) != 0) {
      value.data = TextData((control & 128) != 0 ? L"c:/k/A.PRJSCR" : kProject);
    } else if ((control & 128) != 0) {
      value.data = TextData(std::wstring(1, static_cast<wchar_t>(Byte() << 8 | Byte())));
    } else {
      for (unsigned i = Byte() % 9; i > 0; --i) {
        value.data.push_back(static_cast<std::byte>(Byte()));
      }
    }
    return value;
  }

  const std::uint8_t* data_;
  const std::uint8_t* end_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Values values = Input(data, size).List();
  for (const bool install : {true, false}) {
    if (!BrokenPlanLaw(values, kProject, install).empty()) {
      std::abort();
    }
  }
  return 0;
}
