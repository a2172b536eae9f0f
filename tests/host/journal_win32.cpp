#include "tests/host/journal_win32.h"

#include <utility>

#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"

namespace kestrune {

Journal::Journal(std::wstring path) : path_(std::move(path)) {
  if (!path_.empty()) {
    static_cast<void>(TryWriteFile(path_, ""));
  }
}

void Journal::Note(std::wstring_view text) {
  if (path_.empty()) {
    return;
  }
  const FileHandle file(CreateFileW(path_.c_str(), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file) {
    static_cast<void>(TryWriteAll(file.Get(), Utf8FromWide(Decimal(GetTickCount64() - begin_)) +
                                                  "\t" + Utf8FromWide(text) + "\n"));
  }
}

}  // namespace kestrune
