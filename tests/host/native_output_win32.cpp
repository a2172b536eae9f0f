#include "tests/host/native_output_win32.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "tests/support/files_win32.h"

namespace kestrune {
namespace {

constexpr std::size_t kPieces = 20;

FileHandle Create(const std::wstring& path, DWORD sharing) {
  return FileHandle(CreateFileW(ExtendedPath(path).Get(), GENERIC_WRITE, sharing, nullptr,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool WritePieces(HANDLE file, std::string_view bytes, DWORD pause, const std::atomic<bool>& stop) {
  const std::size_t piece = bytes.size() / kPieces + 1;
  for (std::size_t at = 0; at < bytes.size() && !stop; at += piece) {
    if (!TryWriteAll(file, bytes.substr(at, piece))) {
      return false;
    }
    Sleep(pause);
  }
  return true;
}

}  // namespace

bool ParseOutputManner(const std::wstring& name, OutputManner& manner) {
  constexpr std::array<std::pair<std::wstring_view, OutputManner>, 7> kNames = {
      {{L"growing", OutputManner::Growing},
       {L"slow", OutputManner::Slow},
       {L"nothing", OutputManner::Nothing},
       {L"zero", OutputManner::Zero},
       {L"half", OutputManner::Half},
       {L"replace", OutputManner::Replaced},
       {L"hold", OutputManner::Held}}};
  const auto found =
      std::ranges::find(kNames, name, &std::pair<std::wstring_view, OutputManner>::first);
  if (found == kNames.end()) {
    return false;
  }
  manner = found->second;
  return true;
}

bool NativeOutput::Write(const std::wstring& path, const std::string& archive, OutputManner manner,
                         const std::atomic<bool>& stop) {
  if (manner == OutputManner::Nothing) {
    return true;
  }
  if (!TryCreateDirectories(std::wstring(ParentPath(path)))) {
    return false;
  }
  const DWORD sharing = manner == OutputManner::Held ? 0 : FILE_SHARE_READ;
  FileHandle file = Create(path, sharing);
  const bool half = manner == OutputManner::Half || manner == OutputManner::Replaced;
  const std::string_view content =
      manner == OutputManner::Zero
          ? std::string_view()
          : std::string_view(archive).substr(0, half ? archive.size() / 2 : archive.size());
  const DWORD pause = manner == OutputManner::Slow ? 300 : 50;
  if (!file || !WritePieces(file.Get(), content, pause, stop)) {
    return false;
  }
  if (manner == OutputManner::Held) {
    held_ = std::move(file);
  }
  file.Reset();
  return manner != OutputManner::Replaced ||
         (TryWriteFile(path + L".new", archive) && TryRenameOver(path + L".new", path));
}

}  // namespace kestrune
