#include "install/deploy/file_installation_win32.h"

#include "common/file_time_win32.h"
#include "common/file_win32.h"
#include "common/owners_win32.h"
#include "install/deploy/package_timestamp_win32.h"

namespace kestrune {
namespace {

constexpr DWORD kChunk = 32768;

/// FileDispositionInfoEx; this tool chain's header has it for no system version.
constexpr auto kDispositionClass = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);

bool SetDisposition(HANDLE file, DWORD flags) {
  FILE_DISPOSITION_INFO_EX info{flags};
  return SetFileInformationByHandle(file, kDispositionClass, &info, sizeof(info)) != FALSE;
}

/// Creates a target that vanishes with its handle until it is told to stay. It is so from the very
/// call that creates it, where the file system knows how to change its mind later (all but old ones
/// do); else from the next call on. `vanishes` is false where the file system knows neither way:
/// the file then stays unless it is deleted.
FileHandle CreateVanishingTarget(const std::wstring& path, InstallCalls& calls, bool& vanishes) {
  constexpr DWORD kAccess = GENERIC_READ | GENERIC_WRITE | DELETE;
  FileHandle file(
      calls.Open(path, kAccess, 0, CREATE_NEW, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE));
  vanishes = file && calls.VanishFromTheStart(file.Get());
  if (!file || vanishes) {
    return file;
  }
  file.Reset();
  file.Reset(calls.Open(path, kAccess, 0, CREATE_NEW, FILE_ATTRIBUTE_NORMAL));
  vanishes = file && calls.VanishFromNowOn(file.Get());
  return file;
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

bool CopyBytes(HANDLE source, HANDLE target, Copying copying, InstallCalls& calls) {
  if (!calls.GoToBeginning(source) || !calls.GoToBeginning(target)) {
    return false;
  }
  MarkUnfinished(target, copying, calls);
  char chunk[kChunk];
  for (DWORD read = 1; read != 0;) {
    DWORD written = 0;
    if (!calls.Read(source, chunk, kChunk, read) ||
        (read != 0 && (!calls.Write(target, chunk, read, written) || written != read))) {
      return false;
    }
    MarkUnfinished(target, copying, calls);
  }
  if (!calls.Truncate(target)) {
    return false;
  }
  MarkUnfinished(target, copying, calls);
  return calls.Flush(target);
}

bool CopyBytesAndTime(HANDLE source, HANDLE target, Copying copying, InstallCalls& calls) {
  std::uint64_t time = 0;
  return CopyBytes(source, target, copying, calls) && calls.GetTime(source, time) &&
         calls.SetTime(target, time);
}

bool ReadTargetTime(const WIN32_FILE_ATTRIBUTE_DATA& data, std::uint64_t& time) {
  time = JoinFileTime(data.ftLastWriteTime);
  return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 && time != 0;
}

/// A nameless copy of the target for the time of an update.
enum class BackupOutcome { Open, NotCreated, NotOpened };

BackupOutcome OpenBackup(FileHandle& backup, InstallCalls& calls) {
  wchar_t folder[MAX_PATH + 1] = {};
  const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
  wchar_t name[MAX_PATH + 1] = {};
  if (length == 0 || length >= MAX_PATH || GetTempFileNameW(folder, L"bfu", 0, name) == 0) {
    return BackupOutcome::NotCreated;
  }
  backup.Reset(calls.Open(name, GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING,
                          FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE));
  if (!backup) {
    DeleteFileW(name);
    return BackupOutcome::NotOpened;
  }
  return BackupOutcome::Open;
}

/// One file on its way, with both ends open.
class Installation {
 public:
  Installation(const std::wstring& source, const std::wstring& target, std::wstring& message,
               InstallCalls& calls)
      : source_(source), target_(target), message_(message), calls_(calls) {}
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;
  ~Installation() {
    if (must_delete_target_) {
      target_file_.Reset();
      DeleteFileW(ExtendedPath(target_).Get());
    }
  }

  bool Run(InstallVerdict verdict) {
    source_file_.Reset(
        calls_.Open(source_, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
    if (!source_file_) {
      return Fail(L"Cannot lock source: ", source_);
    }
    const bool is_new = verdict == InstallVerdict::Install;
    bool vanishes = false;
    target_file_ = is_new ? CreateVanishingTarget(target_, calls_, vanishes)
                          : FileHandle(calls_.Open(target_, GENERIC_READ | GENERIC_WRITE, 0,
                                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
    must_delete_target_ = is_new && target_file_ && !vanishes;
    if (!target_file_) {
      return Fail(L"Cannot lock target: ", target_);
    }
    // Somebody may have touched either file between the verdict and the locks.
    std::uint64_t target_time = 0;
    if (!calls_.ReadPackageTime(source_, timestamp_) ||
        !calls_.GetTime(target_file_.Get(), target_time) ||
        (!is_new && (!timestamp_.origin_proven || target_time == 0))) {
      return Fail(L"Timestamp changed or became unreadable; target preserved: ", target_);
    }
    if (is_new) {
      return FillNewTarget();
    }
    return timestamp_.time <= target_time || UpdateTarget();
  }

 private:
  bool FillNewTarget() {
    if (!CopyToTarget() || (!must_delete_target_ && !calls_.Keep(target_file_.Get()))) {
      return Fail(L"Cannot install file: ", target_);
    }
    must_delete_target_ = false;
    return true;
  }

  bool UpdateTarget() {
    FileHandle backup;
    const BackupOutcome outcome = OpenBackup(backup, calls_);
    if (outcome == BackupOutcome::NotOpened) {
      return false;
    }
    if (outcome == BackupOutcome::NotCreated) {
      return Fail(L"Cannot create update backup; target preserved: ", target_);
    }
    if (!CopyFileContent(target_file_.Get(), backup.Get(), calls_)) {
      return Fail(L"Cannot back up target: ", target_);
    }
    if (CopyToTarget()) {
      return true;
    }
    const bool restored =
        CopyBytesAndTime(backup.Get(), target_file_.Get(), Copying::OverTheTarget, calls_);
    return Fail(restored ? L"Update failed; original restored: " : L"Update and rollback failed: ",
                target_);
  }

  /// The source's own time never stands on the target: it may be later than the package's, and a
  /// process that ended just then would leave a file that no later package replaces.
  bool CopyToTarget() {
    return CopyBytes(source_file_.Get(), target_file_.Get(), Copying::OverTheTarget, calls_) &&
           calls_.SetTime(target_file_.Get(), timestamp_.time);
  }

  bool Fail(const wchar_t* text, const std::wstring& path) {
    message_ = text + path;
    return false;
  }

  const std::wstring& source_;
  const std::wstring& target_;
  std::wstring& message_;
  InstallCalls& calls_;
  FileHandle source_file_;
  FileHandle target_file_;
  /// Whether the target is new, unfinished, and would outlive its handle.
  bool must_delete_target_ = false;
  PackageTimestamp timestamp_;
};

}  // namespace

bool InstallCalls::ReadPackageTime(const std::wstring& source, PackageTimestamp& timestamp) {
  return GetPackageTimestamp(source, timestamp);
}

HANDLE InstallCalls::Open(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition,
                          DWORD flags) {
  return CreateFileW(ExtendedPath(path).Get(), access, sharing, nullptr, disposition, flags,
                     nullptr);
}

bool InstallCalls::VanishFromTheStart(HANDLE file) {
  return SetDisposition(file, FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_ON_CLOSE);
}

bool InstallCalls::VanishFromNowOn(HANDLE file) {
  FILE_DISPOSITION_INFO vanish{TRUE};
  return SetFileInformationByHandle(file, FileDispositionInfo, &vanish, sizeof(vanish)) != FALSE;
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

bool InstallCalls::Keep(HANDLE file) {
  if (SetDisposition(file, FILE_DISPOSITION_FLAG_DO_NOT_DELETE | FILE_DISPOSITION_FLAG_ON_CLOSE)) {
    return true;
  }
  FILE_DISPOSITION_INFO stay{FALSE};
  return SetFileInformationByHandle(file, FileDispositionInfo, &stay, sizeof(stay)) != FALSE;
}

InstallVerdict DecideInstall(const std::wstring& source, const std::wstring& target,
                             std::wstring& message) {
  message.clear();
  PackageTimestamp timestamp;
  if (!GetPackageTimestamp(source, timestamp)) {
    message = L"Cannot establish source last-write time: " + source;
    return InstallVerdict::Refused;
  }
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(ExtendedPath(target).Get(), GetFileExInfoStandard, &data)) {
    const DWORD code = GetLastError();
    if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND) {
      return InstallVerdict::Install;
    }
    message = L"Cannot establish target last-write time; file preserved: " + target;
    return InstallVerdict::Refused;
  }
  if (!timestamp.origin_proven) {
    message = L"Original bundled timestamp metadata unavailable; target preserved: " + target;
    return InstallVerdict::Refused;
  }
  std::uint64_t target_time = 0;
  if (!ReadTargetTime(data, target_time)) {
    message = L"Cannot establish target last-write time; file preserved: " + target;
    return InstallVerdict::Refused;
  }
  return timestamp.time > target_time ? InstallVerdict::Update : InstallVerdict::UpToDate;
}

bool InstallFile(const std::wstring& source, const std::wstring& target, std::wstring& message,
                 InstallCalls& calls) {
  const InstallVerdict verdict = DecideInstall(source, target, message);
  if (verdict == InstallVerdict::UpToDate || verdict == InstallVerdict::Refused) {
    return verdict == InstallVerdict::UpToDate;
  }
  return Installation(source, target, message, calls).Run(verdict);
}

bool InstallFile(const std::wstring& source, const std::wstring& target, std::wstring& message) {
  InstallCalls calls;
  return InstallFile(source, target, message, calls);
}

bool CopyFileContent(HANDLE source, HANDLE target, InstallCalls& calls) {
  return CopyBytesAndTime(source, target, Copying::Safely, calls);
}

}  // namespace kestrune
