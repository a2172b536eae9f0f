#include "export/deliver/export_directory_win32.h"

#include <windows.h>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"

namespace kestrune {
namespace {

bool IsWritable(SystemCalls& calls, const std::wstring& directory) {
  const std::wstring name = L".kestrune_write_test_" + Decimal(calls.GetTicks()) + L"_" +
                            Decimal(GetCurrentProcessId()) + L".tmp";
  const FileHandle probe(calls.Create(
      ExtendedPath(JoinPath(directory, name)),
      {GENERIC_WRITE, 0, CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE}));
  return static_cast<bool>(probe);
}

}  // namespace

bool PrepareExportDirectory(SystemCalls& calls, const std::wstring& written,
                            std::wstring& prepared) {
  std::wstring expanded;
  if (written.empty() || !ExpandEnvironment(calls, written, expanded)) {
    return false;
  }
  prepared = FullPath(expanded);
  return !prepared.empty() && QueryFileKindQuietly(calls, prepared) == FileKind::Directory &&
         IsWritable(calls, prepared);
}

}  // namespace kestrune
