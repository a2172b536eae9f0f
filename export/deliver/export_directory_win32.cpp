#include "export/deliver/export_directory_win32.h"

#include <windows.h>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"

namespace kestrune {
namespace {

bool IsWritable(const std::wstring& directory) {
  const std::wstring name = L".kestrune_write_test_" + Decimal(GetTickCount64()) + L"_" +
                            Decimal(GetCurrentProcessId()) + L".tmp";
  const FileHandle probe(
      CreateFileW(ExtendedPath(JoinPath(directory, name)).Get(), GENERIC_WRITE, 0, nullptr,
                  CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  return static_cast<bool>(probe);
}

}  // namespace

bool PrepareExportDirectory(const std::wstring& written, std::wstring& prepared) {
  std::wstring expanded;
  if (written.empty() || !ExpandEnvironment(written, expanded)) {
    return false;
  }
  prepared = FullPath(expanded);
  return !prepared.empty() && QueryFileKindQuietly(prepared) == FileKind::Directory &&
         IsWritable(prepared);
}

}  // namespace kestrune
