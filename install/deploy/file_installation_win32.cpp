#include "install/deploy/file_installation_win32.h"

#include <utility>

#include "common/failure_win32.h"
#include "common/file_time_win32.h"
#include "common/file_win32.h"
#include "common/owners_win32.h"
#include "install/deploy/package_timestamp_win32.h"
#include "install/deploy/refusal.h"

namespace kestrune {
namespace {

constexpr DWORD kChunk = 32768;

/// Throws Failure with the thread's last error when a call failed.
void Require(bool done) {
  if (!done) {
    ThrowLastError(L"copy");
  }
}

enum class Copying { Safely, OverTheTarget };

/// While the target's content is in pieces its time is kUnfinishedTime, so that a later run sees an
/// old file. Each write may move the time on, hence once more after each. This is a net under the
/// copy and not part of it: a refusal does not end it.
void MarkUnfinished(HANDLE target, Copying copying, InstallCalls& calls) {
  if (copying == Copying::OverTheTarget) {
    calls.SetTime(target, kUnfinishedTime);
  }
}

void WriteChunk(HANDLE target, const char* chunk, DWORD size, InstallCalls& calls) {
  DWORD written = 0;
  Require(calls.Write(target, chunk, size, written));
  if (written != size) {
    throw Failure{L"copy", ERROR_WRITE_FAULT};
  }
}

void CopyBytes(HANDLE source, HANDLE target, Copying copying, InstallCalls& calls) {
  Require(calls.GoToBeginning(source));
  Require(calls.GoToBeginning(target));
  MarkUnfinished(target, copying, calls);
  char chunk[kChunk];
  for (DWORD read = 1; read != 0;) {
    Require(calls.Read(source, chunk, kChunk, read));
    if (read != 0) {
      WriteChunk(target, chunk, read, calls);
    }
    MarkUnfinished(target, copying, calls);
  }
  Require(calls.Truncate(target));
  MarkUnfinished(target, copying, calls);
  Require(calls.Flush(target));
}

void CopyBytesAndTime(HANDLE source, HANDLE target, Copying copying, InstallCalls& calls) {
  std::uint64_t time = 0;
  CopyBytes(source, target, copying, calls);
  Require(calls.GetTime(source, time));
  Require(calls.SetTime(target, time));
}

std::optional<PackageTimestamp> ReadTimestamp(const std::wstring& source, InstallCalls& calls,
                                              OriginProof proof) {
  std::optional<PackageTimestamp> timestamp = calls.ReadPackageTime(source);
  if (timestamp && proof == OriginProof::Template) {
    timestamp->origin_proven = true;
  }
  return timestamp;
}

/// The last-write time of a file; none for a directory and where there is no time.
std::optional<std::uint64_t> TimeOfFile(const WIN32_FILE_ATTRIBUTE_DATA& data) {
  const std::uint64_t time = JoinFileTime(data.ftLastWriteTime);
  const bool is_directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return is_directory || time == 0 ? std::nullopt : std::optional(time);
}

/// Creates the file that keeps the target's content for the time of an update, and is gone with its
/// handle.
FileHandle OpenBackup(const std::wstring& target, InstallCalls& calls) {
  wchar_t folder[MAX_PATH + 1] = {};
  const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
  wchar_t name[MAX_PATH + 1] = {};
  if (length == 0 || length >= MAX_PATH || GetTempFileNameW(folder, L"bfu", 0, name) == 0) {
    const DWORD code = GetLastError();
    throw Refusal{{L"Cannot create update backup; target preserved: ", code, target}};
  }
  FileHandle backup(calls.Open(name, GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING,
                               FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE));
  if (!backup) {
    const DWORD code = GetLastError();
    DeleteFileW(name);
    throw Refusal{{L"Cannot open update backup: ", code, name}};
  }
  return backup;
}

/// The open target. One that this run created is deleted again at the end of the scope unless it is
/// kept.
class Target {
 public:
  /// Takes all memory that the deletion needs.
  explicit Target(const std::wstring& path) : path_(path) {}
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
  ~Target() {
    if (is_unfinished_) {
      file_.Reset();
      DeleteFileW(path_.Get());
    }
  }

  void Take(FileHandle file, bool is_new) {
    file_ = std::move(file);
    is_unfinished_ = is_new;
  }
  void Keep() { is_unfinished_ = false; }
  [[nodiscard]] HANDLE Get() const { return file_.Get(); }

 private:
  ExtendedPath path_;
  FileHandle file_;
  bool is_unfinished_ = false;
};

/// One file on its way, with both ends open.
class Installation {
 public:
  Installation(const std::wstring& source, const std::wstring& target, InstallCalls& calls,
               OriginProof proof)
      : source_(source), target_(target), calls_(calls), proof_(proof), target_file_(target) {}

  void Run(InstallVerdict verdict) {
    source_file_ =
        Lock(L"Cannot lock source: ", source_, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    const bool is_new = verdict == InstallVerdict::Install;
    target_file_.Take(Lock(L"Cannot lock target: ", target_, GENERIC_READ | GENERIC_WRITE, 0,
                           is_new ? CREATE_NEW : OPEN_EXISTING),
                      is_new);
    if (is_new) {
      return FillNewTarget();
    }
    const std::uint64_t target_time = LookAgain();
    if (!timestamp_.origin_proven || target_time == 0) {
      Refuse(kChanged, ERROR_SUCCESS);
    }
    if (timestamp_.time > target_time) {
      UpdateTarget();
    }
  }

 private:
  static constexpr const wchar_t* kChanged =
      L"Timestamp changed or became unreadable; target preserved: ";

  FileHandle Lock(const wchar_t* text, const std::wstring& path, DWORD access, DWORD sharing,
                  DWORD disposition) {
    FileHandle file(calls_.Open(path, access, sharing, disposition, FILE_ATTRIBUTE_NORMAL));
    if (!file) {
      const DWORD code = GetLastError();
      throw Refusal{{text, code, path}};
    }
    return file;
  }

  /// Reads both times once more, since either file may have been touched between the verdict and
  /// the locks. Returns the target's.
  std::uint64_t LookAgain() {
    const std::optional<PackageTimestamp> timestamp = ReadTimestamp(source_, calls_, proof_);
    std::uint64_t target_time = 0;
    if (!timestamp) {
      Refuse(kChanged, ERROR_SUCCESS);
    }
    if (!calls_.GetTime(target_file_.Get(), target_time)) {
      Refuse(kChanged, GetLastError());
    }
    timestamp_ = *timestamp;
    return target_time;
  }

  void FillNewTarget() {
    MarkUnfinished(target_file_.Get(), Copying::OverTheTarget, calls_);
    LookAgain();
    try {
      CopyToTarget();
    } catch (const Failure& failure) {
      Refuse(L"Cannot install file: ", failure.code);
    }
    target_file_.Keep();
  }

  void UpdateTarget() {
    const FileHandle backup = OpenBackup(target_, calls_);
    try {
      CopyFileContent(target_file_.Get(), backup.Get(), calls_);
    } catch (const Failure& failure) {
      Refuse(L"Cannot back up target: ", failure.code);
    }
    try {
      CopyToTarget();
    } catch (const Failure& failure) {
      Restore(backup.Get());
      Refuse(L"Update failed; original restored: ", failure.code);
    }
  }

  void Restore(HANDLE backup) {
    try {
      CopyBytesAndTime(backup, target_file_.Get(), Copying::OverTheTarget, calls_);
    } catch (const Failure& failure) {
      Refuse(L"Update and rollback failed: ", failure.code);
    }
  }

  /// The source's own time never stands on the target: it may be later than the package's, and a
  /// process that ended just then would leave a file that no later package replaces.
  void CopyToTarget() {
    CopyBytes(source_file_.Get(), target_file_.Get(), Copying::OverTheTarget, calls_);
    Require(calls_.SetTime(target_file_.Get(), timestamp_.time));
  }

  [[noreturn]] void Refuse(const wchar_t* text, DWORD code) {
    throw Refusal{{text, code, target_}};
  }

  const std::wstring& source_;
  const std::wstring& target_;
  InstallCalls& calls_;
  OriginProof proof_;
  FileHandle source_file_;
  Target target_file_;
  PackageTimestamp timestamp_;
};

}  // namespace

std::optional<PackageTimestamp> InstallCalls::ReadPackageTime(const std::wstring& source) {
  return GetPackageTimestamp(source);
}

HANDLE InstallCalls::Open(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition,
                          DWORD flags) {
  return CreateFileW(ExtendedPath(path).Get(), access, sharing, nullptr, disposition, flags,
                     nullptr);
}

bool InstallCalls::GoToBeginning(HANDLE file) {
  return SetFilePointerEx(file, {}, nullptr, FILE_BEGIN) != FALSE;
}

bool InstallCalls::Read(HANDLE file, void* bytes, DWORD size, DWORD& done) {
  return ReadFile(file, bytes, size, &done, nullptr) != FALSE;
}

bool InstallCalls::Write(HANDLE file, const void* bytes, DWORD size, DWORD& done) {
  return WriteFile(file, bytes, size, &done, nullptr) != FALSE;
}

bool InstallCalls::Truncate(HANDLE file) {
  return SetEndOfFile(file) != FALSE;
}

bool InstallCalls::Flush(HANDLE file) {
  return FlushFileBuffers(file) != FALSE;
}

bool InstallCalls::GetTime(HANDLE file, std::uint64_t& time) {
  FILETIME last_write{};
  if (!GetFileTime(file, nullptr, nullptr, &last_write)) {
    return false;
  }
  time = JoinFileTime(last_write);
  return true;
}

bool InstallCalls::SetTime(HANDLE file, std::uint64_t time) {
  const FILETIME last_write = SplitFileTime(time);
  return SetFileTime(file, nullptr, nullptr, &last_write) != FALSE;
}

InstallVerdict DecideInstall(const std::wstring& source, const std::wstring& target,
                             InstallCalls& calls, OriginProof proof) {
  constexpr const wchar_t* kNoTime = L"Cannot establish target last-write time; file preserved: ";
  const std::optional<PackageTimestamp> timestamp = ReadTimestamp(source, calls, proof);
  if (!timestamp) {
    throw Refusal{{L"Cannot establish source last-write time: ", 0, source}};
  }
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(ExtendedPath(target).Get(), GetFileExInfoStandard, &data)) {
    const DWORD code = GetLastError();
    if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND) {
      return InstallVerdict::Install;
    }
    throw Refusal{{kNoTime, code, target}};
  }
  if (!timestamp->origin_proven) {
    throw Refusal{
        {L"Original bundled timestamp metadata unavailable; target preserved: ", 0, target}};
  }
  const std::optional<std::uint64_t> target_time = TimeOfFile(data);
  if (!target_time) {
    throw Refusal{{kNoTime, 0, target}};
  }
  return timestamp->time > *target_time ? InstallVerdict::Update : InstallVerdict::UpToDate;
}

void InstallFile(const std::wstring& source, const std::wstring& target, InstallCalls& calls,
                 OriginProof proof) {
  const InstallVerdict verdict = DecideInstall(source, target, calls, proof);
  if (verdict != InstallVerdict::UpToDate) {
    Installation(source, target, calls, proof).Run(verdict);
  }
}

void CopyFileContent(HANDLE source, HANDLE target, InstallCalls& calls) {
  CopyBytesAndTime(source, target, Copying::Safely, calls);
}

}  // namespace kestrune
