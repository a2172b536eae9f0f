#include "registration/store/working_files_win32.h"

#include <cstdint>
#include <limits>
#include <string_view>

#include "common/files/file_time_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/text.h"

namespace altium_registration {
namespace {

using kestrune::ExtendedPath;
using kestrune::SystemCalls;

constexpr std::wstring_view kRunPrefix = L".odbpp-";
constexpr std::wstring_view kWorkingEnd = L".tmp";
constexpr std::wstring_view kDisplacedEnd = L".old.tmp";

/// Returns the start time of a process, which makes its ID unique, since IDs are reused.
std::uint64_t StartTime(SystemCalls& calls, HANDLE process) {
  FILETIME created{};
  if (!calls.GetCreationTime(process, &created)) {
    return 0;
  }
  return kestrune::JoinFileTime(created);
}

/// Removes a number from the front of the text and returns it; 0 when there is none.
std::uint64_t TakeNumber(std::wstring_view& text) {
  return kestrune::TakeDecimal(text, std::numeric_limits<std::uint64_t>::max()).value_or(0);
}

/// Returns whether the run that named the file ("<process>_<start time>_...") is still running. A
/// process that cannot be opened counts as running.
bool IsLiveRun(SystemCalls& calls, std::wstring_view run) {
  const auto process_id = static_cast<DWORD>(TakeNumber(run));
  if (run.empty() || run.front() != L'_') {
    return false;
  }
  run.remove_prefix(1);
  const std::uint64_t start_time = TakeNumber(run);
  const kestrune::KernelHandle process(
      calls.OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, process_id));
  if (!process) {
    return GetLastError() == ERROR_ACCESS_DENIED;
  }
  DWORD exit_code = 0;
  const bool runs = calls.GetExitCode(process.Get(), &exit_code) && exit_code == STILL_ACTIVE;
  return runs && StartTime(calls, process.Get()) == start_time;
}

void ClearLeftover(SystemCalls& calls, const ExtendedPath& rcs_path, const std::wstring& name,
                   const ExtendedPath& directory) {
  const ExtendedPath path = rcs_path.Parent().Entry(name);
  if (!name.ends_with(kDisplacedEnd)) {
    calls.Delete(path);
  } else if (Exists(calls, rcs_path)) {
    calls.Move(path, directory.Entry(name), 0);
  }
}

}  // namespace

bool Exists(SystemCalls& calls, const ExtendedPath& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  return calls.GetAttributes(path, &data) != FALSE;
}

WorkingFiles NameWorkingFiles(SystemCalls& calls, const ExtendedPath& rcs_path) {
  const std::wstring run = std::wstring(kRunPrefix) + std::to_wstring(GetCurrentProcessId()) +
                           L"_" + std::to_wstring(StartTime(calls, GetCurrentProcess())) + L"_" +
                           std::to_wstring(calls.GetCounter());
  return {rcs_path.WithEnding(run + std::wstring(kWorkingEnd)),
          rcs_path.WithEnding(run + std::wstring(kDisplacedEnd)),
          rcs_path.WithEnding(run + L".undone" + std::wstring(kDisplacedEnd)),
          rcs_path.WithEnding(L".recovery"),
          rcs_path.WithEnding(run + L".recovery" + std::wstring(kDisplacedEnd))};
}

void ClearLeftovers(SystemCalls& calls, const ExtendedPath& rcs_path,
                    const ExtendedPath& directory) {
  const std::wstring prefix = std::wstring(rcs_path.Name()) + std::wstring(kRunPrefix);
  WIN32_FIND_DATAW entry{};
  const ExtendedPath pattern = rcs_path.Parent().Entry(prefix + L"*" + std::wstring(kWorkingEnd));
  const kestrune::FindHandle find(calls.FindFirst(pattern, &entry));
  if (!find) {
    return;
  }
  do {
    const std::wstring name = entry.cFileName;
    const bool is_file = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    if (is_file && name.size() > prefix.size() && name.ends_with(kWorkingEnd) &&
        !IsLiveRun(calls, std::wstring_view(name).substr(prefix.size()))) {
      ClearLeftover(calls, rcs_path, name, directory);
    }
  } while (calls.FindNext(find.Get(), &entry));
}

}  // namespace altium_registration
