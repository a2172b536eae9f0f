#include "install/deploy/package_timestamp_win32.h"

#include <windows.h>

#include <new>

#include "common/failure/failure.h"
#include "common/files/file_time_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/files/sha256_win32.h"
#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr DWORD kValueBuffer = 128;

bool ReadOwnTime(SystemCalls& calls, const std::wstring& source, std::uint64_t& time) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!calls.GetAttributes(ExtendedPath(source), &data) ||
      (data.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != 0) {
    return false;
  }
  time = JoinFileTime(data.ftLastWriteTime);
  return time != 0;
}

/// Finds the folder's only manifest; `manifest` stays empty when there is none. Returns false when
/// there are several or the folder cannot be searched.
bool FindManifest(SystemCalls& calls, const std::wstring& directory, std::wstring& manifest) {
  WIN32_FIND_DATAW entry{};
  const ExtendedPath pattern = ExtendedPath(directory).Entry(L"BFM_*.ini");
  const FindHandle find(calls.FindFirst(pattern, &entry));
  if (!find) {
    // For an empty result some file systems fail the first call, others the next one.
    const DWORD code = GetLastError();
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_NO_MORE_FILES;
  }
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ||
        !IsManifestName(entry.cFileName)) {
      continue;
    }
    if (!manifest.empty()) {
      return false;
    }
    manifest = JoinPath(directory, entry.cFileName);
  } while (calls.FindNext(find.Get(), &entry));
  return GetLastError() == ERROR_NO_MORE_FILES;
}

std::wstring ReadManifestValue(SystemCalls& calls, const std::wstring& manifest,
                               const std::wstring& file_name) {
  wchar_t value[kValueBuffer] = {};
  // Windows would search for a name without a folder in its own directory.
  const DWORD length = calls.ReadProfileText(L"Files", file_name.c_str(), L"", value, kValueBuffer,
                                             FullPath(manifest));
  return {value, length};
}

bool HasDigest(SystemCalls& calls, const std::wstring& source, std::wstring_view digest) {
  try {
    return WidenBytes(Sha256OfFile(calls, ExtendedPath(source))) == digest;
  } catch (const Failure& failure) {
    if (failure.code == ERROR_NOT_ENOUGH_MEMORY || failure.code == ERROR_OUTOFMEMORY) {
      throw std::bad_alloc();
    }
    return false;
  }
}

}  // namespace

std::optional<PackageTimestamp> GetPackageTimestamp(SystemCalls& calls,
                                                    const std::wstring& source) {
  std::uint64_t own_time = 0;
  if (!ReadOwnTime(calls, source, own_time)) {
    return std::nullopt;
  }
  const std::size_t separator = source.rfind(L'\\');
  const bool has_directory = separator != std::wstring::npos;
  const std::wstring directory = has_directory ? source.substr(0, separator) : L".";
  const std::wstring name = has_directory ? source.substr(separator + 1) : source;
  std::wstring manifest;
  if (!FindManifest(calls, directory, manifest)) {
    return std::nullopt;
  }
  if (manifest.empty()) {
    return PackageTimestamp{own_time, IsTrustedWithoutManifest(source)};
  }
  const std::wstring value = ReadManifestValue(calls, manifest, name);
  ManifestEntry entry;
  if (!ParseManifestValue(value, entry) || !HasDigest(calls, source, entry.digest)) {
    return std::nullopt;
  }
  return PackageTimestamp{entry.time, true};
}

}  // namespace kestrune
