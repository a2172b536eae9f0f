#include "install/extra_record_kinds_win32.h"

#include <windows.h>

#include "common/path.h"
#include "common/product_files.h"
#include "install/extra_record_kinds.h"

namespace kestrune {

std::vector<std::string> ReadExtraRecordKinds(const std::wstring& local_app_data) {
  constexpr DWORD kLongestValue = 32768;  // characters, the terminating zero included
  const std::wstring path = JoinPath({local_app_data, kProductFolder, kRegistrationSettingsFile});
  std::wstring value(kLongestValue, L'\0');
  value.resize(GetPrivateProfileStringW(L"Registration", L"ExtraRecords", L"", value.data(),
                                        kLongestValue, path.c_str()));
  return ExtraRecordKinds(value);
}

}  // namespace kestrune
