#include "install/deploy/runtime_script_win32.h"

#include <windows.h>

#include "common/log/clock_time_win32.h"
#include "common/files/file_time_win32.h"
#include "common/files/file_win32.h"
#include "common/places/known_folders_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/places/product_files.h"
#include "common/text/text_win32.h"
#include "install/deploy/file_installation_win32.h"
#include "install/deploy/package_timestamp_win32.h"
#include "install/deploy/refusal.h"
#include "install/deploy/runtime_script.h"

namespace kestrune {
namespace {

/// Much larger than any script, and small enough for a 32-bit process.
constexpr std::uint64_t kLargestTemplate = 16 << 20;

/// Returns the template filled in for this machine.
std::string FillForThisMachine(SystemCalls& calls, const std::string& script,
                               const std::wstring& runtime) {
  std::wstring temporary;
  std::wstring folder_error;
  if (!TemporaryRoot(calls, temporary, folder_error)) {
    throw Refusal{{folder_error}};
  }
  // The host reads scripts in the ANSI code page: a path with a replaced character would name
  // another directory.
  if (!SurvivesAnsiRoundTrip(runtime) || !SurvivesAnsiRoundTrip(temporary)) {
    throw Refusal{
        {L"The path of the runtime or temporary directory has characters outside the ANSI code "
         L"page."}};
  }
  return FillScriptTemplate(script, AnsiFromWideLossy(runtime), AnsiFromWideLossy(temporary));
}

/// Gives the temporary file the template's time, which the installed script then gets. Returns what
/// proves the script's origin: OriginProof::Template if the template's origin is proven. The path
/// of the temporary file cannot prove it, since a user name in it may contain the name of the
/// product family's folder.
OriginProof TakePackageTime(SystemCalls& calls, const std::wstring& script,
                            const std::wstring& incoming) {
  const std::optional<PackageTimestamp> timestamp = GetPackageTimestamp(calls, script);
  if (!timestamp) {
    throw Refusal{{L"Cannot establish source last-write time: ", 0, script}};
  }
  const ExtendedPath path(incoming);
  const FileHandle file(calls.Create(path, {.access = FILE_WRITE_ATTRIBUTES}));
  if (!file || !calls.SetWriteTime(file.Get(), SplitFileTime(timestamp->time))) {
    const DWORD code = GetLastError();
    throw Refusal{{L"Cannot set the time of ", code, incoming}};
  }
  return timestamp->origin_proven ? OriginProof::Template : OriginProof::Source;
}

void Remove(SystemCalls& calls, const std::wstring& incoming) {
  const ExtendedPath path(incoming);
  if (!calls.Delete(path)) {
    const DWORD code = GetLastError();
    throw Failure{L"remove", code, incoming};
  }
}

std::string ReadTemplate(SystemCalls& calls, const std::wstring& script) {
  try {
    return ReadWholeFile(calls, script, kLargestTemplate);
  } catch (const Failure& failure) {
    throw Refusal{{L"Cannot read the runtime script template.", failure.code}};
  }
}

void WriteScript(SystemCalls& calls, const std::wstring& path, std::string_view script) {
  try {
    WriteWholeFile(calls, path, script);
  } catch (const Failure& failure) {
    throw Refusal{{L"Cannot write the runtime script.", failure.code}};
  }
}

}  // namespace

void GenerateRuntimeScript(SystemCalls& calls, const std::wstring& package,
                           const std::wstring& runtime) {
  const std::wstring script = JoinPath({package, kPackageScriptFolder, kScriptFile});
  const std::wstring target = JoinPath(runtime, kScriptFile);
  if (DecideInstall(calls, script, target) == InstallVerdict::UpToDate) {
    return;
  }
  const std::string filled = FillForThisMachine(calls, ReadTemplate(calls, script), runtime);
  const std::wstring incoming = JoinPath(runtime, IncomingScriptName(LocalTimeNow(calls)));
  WriteScript(calls, incoming, filled);
  const OriginProof proof = TakePackageTime(calls, script, incoming);
  try {
    InstallFile(calls, incoming, target, proof);
  } catch (const Refusal&) {
    Remove(calls, incoming);
    throw;
  }
  Remove(calls, incoming);
}

}  // namespace kestrune
