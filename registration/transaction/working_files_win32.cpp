#include "registration/transaction/working_files_win32.h"

#include <cstdint>
#include <cwchar>
#include <string_view>

#include "common/file_time_win32.h"
#include "common/owners_win32.h"
#include "common/path.h"
#include "common/text.h"

namespace altium_registration {
namespace {

using kestrune::JoinPath;

constexpr std::wstring_view kMark = L".odbpp-";
constexpr std::wstring_view kTemporaryEnd = L".tmp";
constexpr std::wstring_view kDisplacedEnd = L".old.tmp";

/// A process number alone is used again after a while; with the start time it is not.
std::uint64_t StartTime(HANDLE process) {
  FILETIME created{};
  FILETIME ignored{};
  if (!GetProcessTimes(process, &created, &ignored, &ignored, &ignored)) {
    return 0;
  }
  return kestrune::JoinFileTime(created);
}

/// Reads a decimal number off the front of the text.
std::uint64_t TakeNumber(std::wstring_view& text) {
  std::uint64_t number = 0;
  while (!text.empty() && kestrune::IsAsciiDigit(text.front())) {
    number = number * 10 + static_cast<std::uint64_t>(text.front() - L'0');
    text.remove_prefix(1);
  }
  return number;
}

/// Whether the run that named the file ("<process>_<start time>_...") still works. A process that
/// may not even be asked is alive.
bool IsLiveRun(std::wstring_view run) {
  const auto process_id = static_cast<DWORD>(TakeNumber(run));
  if (run.empty() || run.front() != L'_') {
    return false;
  }
  run.remove_prefix(1);
  const std::uint64_t start_time = TakeNumber(run);
  const kestrune::KernelHandle process(
      OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  if (!process) {
    return GetLastError() == ERROR_ACCESS_DENIED;
  }
  DWORD exit_code = 0;
  const bool runs = GetExitCodeProcess(process.Get(), &exit_code) && exit_code == STILL_ACTIVE;
  return runs && StartTime(process.Get()) == start_time;
}

void ClearLeftover(SystemCalls& calls, const std::wstring& rcs_path, const std::wstring& name,
                   const std::wstring& directory) {
  const std::wstring path = JoinPath(kestrune::ParentPath(rcs_path), name);
  if (!name.ends_with(kDisplacedEnd)) {
    calls.Delete(path);
  } else if (Exists(rcs_path)) {
    calls.Move(path, JoinPath(directory, name), 0);
  }
}

}  // namespace

bool Exists(const std::wstring& extended_path) {
  return GetFileAttributesW(extended_path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

WorkingFiles NameWorkingFiles(const std::wstring& extended_rcs_path) {
  LARGE_INTEGER counter{};
  QueryPerformanceCounter(&counter);
  const std::wstring stem =
      extended_rcs_path + std::wstring(kMark) + std::to_wstring(GetCurrentProcessId()) + L"_" +
      std::to_wstring(StartTime(GetCurrentProcess())) + L"_" + std::to_wstring(counter.QuadPart);
  return {stem + std::wstring(kTemporaryEnd), stem + std::wstring(kDisplacedEnd),
          extended_rcs_path + L".recovery"};
}

void ClearLeftovers(SystemCalls& calls, const std::wstring& extended_rcs_path,
                    const std::wstring& directory) {
  const std::wstring prefix =
      std::wstring(kestrune::FileName(extended_rcs_path)) + std::wstring(kMark);
  WIN32_FIND_DATAW entry{};
  const std::wstring pattern = JoinPath(kestrune::ParentPath(extended_rcs_path), prefix) + L"*" +
                               std::wstring(kTemporaryEnd);
  const kestrune::FindHandle find(FindFirstFileW(pattern.c_str(), &entry));
  if (!find) {
    return;
  }
  do {
    const std::wstring name = entry.cFileName;
    const bool is_file = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    if (is_file && name.size() > prefix.size() && name.ends_with(kTemporaryEnd) &&
        !IsLiveRun(std::wstring_view(name).substr(prefix.size()))) {
      ClearLeftover(calls, extended_rcs_path, name, directory);
    }
  } while (FindNextFileW(find.Get(), &entry));
}

}  // namespace altium_registration
