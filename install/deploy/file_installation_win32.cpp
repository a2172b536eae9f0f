#include "install/deploy/file_installation_win32.h"

#include <optional>

#include "common/failure/failure_win32.h"
#include "common/files/file_time_win32.h"
#include "common/system/owners_win32.h"
#include "install/deploy/package_timestamp_win32.h"
#include "install/deploy/refusal.h"

namespace kestrune {
namespace {

constexpr DWORD kChunk = 32768;

/// Throws Failure with the thread's last error when a call failed.
void Require(BOOL done) {
  if (!done) {
    ThrowLastError(L"copy");
  }
}

/// Sets the target's time to kUnfinishedTime. Ignores a failure: only an update after a killed run
/// needs that time.
void MarkUnfinished(SystemCalls& calls, HANDLE target) {
  calls.SetWriteTime(target, SplitFileTime(kUnfinishedTime));
}

/// Copies the content between two open files.
class ContentCopy {
 public:
  ContentCopy(SystemCalls& calls, HANDLE source, HANDLE target)
      : calls_(calls), source_(source), target_(target) {}

  /// Overwrites a runtime file. The target's time is kUnfinishedTime while its content is
  /// incomplete, so that a later run replaces an incomplete file. The time is set again after each
  /// write, which may change it.
  void CopyOverRuntimeFile() {
    is_marked_ = true;
    CopyBytes();
  }

  void CopyBytes() {
    Require(calls_.SetPointer(source_, {}, nullptr, FILE_BEGIN));
    Require(calls_.SetPointer(target_, {}, nullptr, FILE_BEGIN));
    Mark();
    while (CopyChunk()) {
      Mark();
    }
    Require(calls_.SetEnd(target_));
    Mark();
    Require(calls_.Flush(target_));
  }

  void CopyTime() {
    FILETIME time{};
    Require(calls_.GetWriteTime(source_, &time));
    Require(calls_.SetWriteTime(target_, time));
  }

 private:
  /// Copies at most kChunk bytes. Returns false at the end of the source.
  bool CopyChunk() {
    char chunk[kChunk];
    DWORD read = 0;
    Require(calls_.Read(source_, chunk, kChunk, &read));
    if (read == 0) {
      return false;
    }
    DWORD written = 0;
    Require(calls_.Write(target_, chunk, read, &written));
    if (written != read) {
      throw Failure{L"copy", ERROR_WRITE_FAULT};
    }
    return true;
  }

  void Mark() {
    if (is_marked_) {
      MarkUnfinished(calls_, target_);
    }
  }

  SystemCalls& calls_;
  HANDLE source_;
  HANDLE target_;
  bool is_marked_ = false;
};

std::optional<PackageTimestamp> ReadTimestamp(SystemCalls& calls, const std::wstring& source,
                                              OriginProof proof) {
  std::optional<PackageTimestamp> timestamp = GetPackageTimestamp(calls, source);
  if (timestamp && proof == OriginProof::Template) {
    timestamp->origin_proven = true;
  }
  return timestamp;
}

/// Returns the last-write time of a file; none for a directory and for a file without a time.
std::optional<std::uint64_t> TimeOfFile(const WIN32_FILE_ATTRIBUTE_DATA& data) {
  const std::uint64_t time = JoinFileTime(data.ftLastWriteTime);
  const bool is_directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return is_directory || time == 0 ? std::nullopt : std::optional(time);
}

/// Creates an empty file in the folder for temporary files. Throws Refusal.
std::wstring CreateBackup(SystemCalls& calls, const std::wstring& target) {
  const auto refuse = [&](DWORD code) {
    throw Refusal{{L"Cannot create update backup; target preserved: ", code, target}};
  };
  wchar_t folder[MAX_PATH + 1] = {};
  const DWORD length = calls.GetTemporaryFolder(MAX_PATH + 1, folder);
  if (length == 0) {
    refuse(GetLastError());
  }
  if (length >= MAX_PATH) {
    // For a path that is too long Windows sets no error code.
    refuse(ERROR_FILENAME_EXCED_RANGE);
  }
  wchar_t name[MAX_PATH + 1] = {};
  if (calls.MakeTemporaryFile(folder, L"bfu", name) == 0) {
    refuse(GetLastError());
  }
  return name;
}

/// Creates the delete-on-close file that keeps the target's old content during an update.
FileHandle OpenBackup(SystemCalls& calls, const std::wstring& target) {
  const std::wstring name = CreateBackup(calls, target);
  const ExtendedPath path(name);
  FileHandle backup(
      calls.Create(path, {.access = GENERIC_READ | GENERIC_WRITE,
                          .flags = FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE}));
  if (!backup) {
    const DWORD code = GetLastError();
    calls.Delete(path);
    throw Refusal{{L"Cannot open update backup: ", code, name}};
  }
  return backup;
}

/// Holds the open target. A new target is written under a temporary name, so that a killed process
/// never leaves an incomplete target. The temporary file is deleted at the end of the scope unless
/// it was renamed to the target.
class Target {
 public:
  /// Allocates all memory that the deletion needs.
  Target(SystemCalls& calls, const std::wstring& path)
      : calls_(calls), path_(path), incoming_(path + L".incoming") {}
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
  ~Target() {
    if (is_unfinished_) {
      file_.Reset();
      calls_.Delete(incoming_);
    }
  }

  /// Opens the file to write: an existing target itself, or the temporary file of a new one, which
  /// is emptied if a killed process has left it. Returns ERROR_SUCCESS or the Windows code.
  [[nodiscard]] DWORD Open(bool is_new) {
    file_.Reset(
        calls_.Create(is_new ? incoming_ : path_,
                      {.access = GENERIC_READ | GENERIC_WRITE,
                       .disposition = is_new ? DWORD{CREATE_ALWAYS} : DWORD{OPEN_EXISTING}}));
    if (!file_) {
      return GetLastError();
    }
    is_unfinished_ = is_new;
    return ERROR_SUCCESS;
  }

  /// Closes a new file and renames it to the target, unless the target exists by now. Returns
  /// ERROR_SUCCESS or the Windows code.
  [[nodiscard]] DWORD Finish() {
    file_.Reset();
    if (!calls_.Move(incoming_, path_, 0)) {
      return GetLastError();
    }
    is_unfinished_ = false;
    return ERROR_SUCCESS;
  }

  [[nodiscard]] HANDLE Get() const { return file_.Get(); }

 private:
  SystemCalls& calls_;
  ExtendedPath path_;
  ExtendedPath incoming_;
  FileHandle file_;
  bool is_unfinished_ = false;
};

/// Installs one file while source and target are open.
class Installation {
 public:
  Installation(SystemCalls& calls, const std::wstring& source, const std::wstring& target,
               OriginProof proof)
      : calls_(calls),
        source_(source),
        target_(target),
        proof_(proof),
        target_file_(calls, target) {}

  void Run(InstallVerdict verdict) {
    source_file_ = LockSource();
    const bool is_new = verdict == InstallVerdict::Install;
    if (const DWORD code = target_file_.Open(is_new); code != ERROR_SUCCESS) {
      Refuse(kNoLock, code);
    }
    if (is_new) {
      return FillNewTarget();
    }
    const std::uint64_t target_time = ReadTimesAgain();
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
  static constexpr const wchar_t* kNoLock = L"Cannot lock target: ";

  FileHandle LockSource() {
    const ExtendedPath path(source_);
    FileHandle file(calls_.Create(
        path, {.access = GENERIC_READ, .sharing = FILE_SHARE_READ, .disposition = OPEN_EXISTING}));
    if (!file) {
      const DWORD code = GetLastError();
      throw Refusal{{L"Cannot lock source: ", code, source_}};
    }
    return file;
  }

  /// Reads both times again, since either file may have been changed between the decision and
  /// opening them. Returns the target's time.
  std::uint64_t ReadTimesAgain() {
    const std::optional<PackageTimestamp> timestamp = ReadTimestamp(calls_, source_, proof_);
    if (!timestamp) {
      Refuse(kChanged, ERROR_SUCCESS);
    }
    FILETIME target_time{};
    if (!calls_.GetWriteTime(target_file_.Get(), &target_time)) {
      Refuse(kChanged, GetLastError());
    }
    timestamp_ = *timestamp;
    return JoinFileTime(target_time);
  }

  void FillNewTarget() {
    ReadTimesAgain();
    try {
      CopyToTarget();
    } catch (const Failure& failure) {
      Refuse(L"Cannot install file: ", failure.code);
    }
    if (const DWORD code = target_file_.Finish(); code != ERROR_SUCCESS) {
      Refuse(kNoLock, code);
    }
  }

  void UpdateTarget() {
    const FileHandle backup = OpenBackup(calls_, target_);
    try {
      CopyFileContent(calls_, target_file_.Get(), backup.Get());
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
      ContentCopy copy(calls_, backup, target_file_.Get());
      copy.CopyOverRuntimeFile();
      copy.CopyTime();
    } catch (const Failure& failure) {
      Refuse(L"Update and rollback failed: ", failure.code);
    }
  }

  /// Copies the content and sets the package's time. Never sets the source's own time first, since
  /// it may be later: a process killed at that moment would leave a file that no later package
  /// replaces.
  void CopyToTarget() {
    ContentCopy(calls_, source_file_.Get(), target_file_.Get()).CopyOverRuntimeFile();
    Require(calls_.SetWriteTime(target_file_.Get(), SplitFileTime(timestamp_.time)));
  }

  [[noreturn]] void Refuse(const wchar_t* text, DWORD code) {
    throw Refusal{{text, code, target_}};
  }

  SystemCalls& calls_;
  const std::wstring& source_;
  const std::wstring& target_;
  OriginProof proof_;
  FileHandle source_file_;
  Target target_file_;
  PackageTimestamp timestamp_;
};

}  // namespace

InstallVerdict DecideInstall(SystemCalls& calls, const std::wstring& source,
                             const std::wstring& target, OriginProof proof) {
  constexpr const wchar_t* kNoTime = L"Cannot establish target last-write time; file preserved: ";
  const std::optional<PackageTimestamp> timestamp = ReadTimestamp(calls, source, proof);
  if (!timestamp) {
    throw Refusal{{L"Cannot establish source last-write time: ", 0, source}};
  }
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const ExtendedPath path(target);
  if (!calls.GetAttributes(path, &data)) {
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

void InstallFile(SystemCalls& calls, const std::wstring& source, const std::wstring& target,
                 OriginProof proof) {
  const InstallVerdict verdict = DecideInstall(calls, source, target, proof);
  if (verdict != InstallVerdict::UpToDate) {
    Installation(calls, source, target, proof).Run(verdict);
  }
}

void CopyFileContent(SystemCalls& calls, HANDLE source, HANDLE target) {
  ContentCopy copy(calls, source, target);
  copy.CopyBytes();
  copy.CopyTime();
}

}  // namespace kestrune
