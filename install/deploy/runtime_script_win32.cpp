#include "install/deploy/runtime_script_win32.h"

#include <windows.h>

#include "common/clock_time_win32.h"
#include "common/failure_win32.h"
#include "common/file_time_win32.h"
#include "common/file_win32.h"
#include "common/known_folders_win32.h"
#include "common/owners_win32.h"
#include "common/path.h"
#include "common/product_files.h"
#include "common/text_win32.h"
#include "install/deploy/file_installation_win32.h"
#include "install/deploy/package_timestamp_win32.h"
#include "install/deploy/runtime_script.h"

namespace kestrune {
namespace {

/// Far above any script, and small enough for a 32-bit process.
constexpr std::uint64_t kLargestTemplate = 16 << 20;

/// The script for this machine, from the template's bytes.
bool FillForThisMachine(const std::string& script, const std::wstring& runtime, std::string& filled,
                        std::wstring& message) {
  std::wstring temporary;
  if (!TemporaryRoot(temporary, message)) {
    return false;
  }
  // The host reads scripts in the ANSI code page: a path with a replaced character would lead
  // somewhere else.
  if (!SurvivesAnsiRoundTrip(runtime) || !SurvivesAnsiRoundTrip(temporary)) {
    message = L"The runtime script cannot hold its directories.";
    return false;
  }
  filled = FillScriptTemplate(script, AnsiFromWideLossy(runtime), AnsiFromWideLossy(temporary));
  return true;
}

/// Gives the waiting file the template's time, so that the script ends up with it.
bool TakePackageTime(const std::wstring& script, const std::wstring& incoming) {
  PackageTimestamp timestamp;
  if (!GetPackageTimestamp(script, timestamp)) {
    return false;
  }
  const FileHandle file(CreateFileW(ExtendedPath(incoming).Get(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  const FILETIME time = SplitFileTime(timestamp.time);
  return file && SetFileTime(file.Get(), nullptr, nullptr, &time);
}

}  // namespace

bool GenerateRuntimeScript(const std::wstring& package, const std::wstring& runtime,
                           std::wstring& message) {
  const std::wstring script = JoinPath({package, kPackageScriptFolder, kScriptFile});
  const std::wstring target = JoinPath(runtime, kScriptFile);
  const InstallVerdict verdict = DecideInstall(script, target, message);
  if (verdict == InstallVerdict::UpToDate || verdict == InstallVerdict::Refused) {
    return verdict == InstallVerdict::UpToDate;
  }
  std::string bytes;
  if (!ReadWholeFile(script, kLargestTemplate, bytes)) {
    message = L"Cannot read the runtime script template.";
    return false;
  }
  std::string filled;
  if (!FillForThisMachine(bytes, runtime, filled, message)) {
    return false;
  }
  const std::wstring incoming = JoinPath(runtime, IncomingScriptName(LocalTimeNow()));
  if (!WriteWholeFile(incoming, filled)) {
    message = L"Cannot write the runtime script.";
    return false;
  }
  if (!TakePackageTime(script, incoming)) {
    return false;
  }
  const bool installed = InstallFile(incoming, target, message);
  if (!DeleteFileW(ExtendedPath(incoming).Get())) {
    ThrowLastError(L"remove");
  }
  return installed;
}

}  // namespace kestrune
