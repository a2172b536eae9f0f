#include "registration/store/windows_store_win32.h"

#include <utility>

#include "common/log/clock_time_win32.h"
#include "common/failure/failure.h"
#include "common/failure/failure_win32.h"
#include "common/files/file_time_win32.h"
#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "registration/store/backup_format.h"
#include "registration/store/global_projects_key_win32.h"
#include "registration/store/store_files_win32.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

using kestrune::ExtendedPath;
using kestrune::FileHandle;
using kestrune::JoinPath;

constexpr std::wstring_view kSavedRcs = L"DXP.RCS.before";

std::wstring NameBackupDirectory(kestrune::SystemCalls& calls, const StoreTarget& target) {
  const std::wstring root = JoinPath(kestrune::ParentPath(target.rcs_path), L"KestruneBackups");
  const RunStamp stamp = {kestrune::UtcTimeNow(calls), GetCurrentProcessId(), calls.GetTicks()};
  return JoinPath(JoinPath(root, target.guid), BackupDirectoryName(stamp));
}

}  // namespace

WindowsStore::WindowsStore(StoreTarget target, kestrune::SystemCalls& calls)
    : target_(std::move(target)),
      key_path_(GlobalProjectsPath(target_.registry_branch)),
      calls_(calls),
      file_(target_.rcs_path, calls_),
      backup_directory_(NameBackupDirectory(calls_, target_)) {}

std::string WindowsStore::ReadRcs() {
  return file_.Read();
}

std::vector<RegistryValue> WindowsStore::ReadGlobalProjects() {
  return ReadRegistryValues(calls_, key_path_);
}

void WindowsStore::CreateBackups(std::string_view rcs, const std::vector<RegistryValue>& values) {
  if (const DWORD code = EnsureBackupDirectory(); code != ERROR_SUCCESS) {
    throw FileStepFailure(L"Create backup directory", code);
  }
  BackUpRcs(rcs);
  WriteBackup(L"registry.before.bin", RegistryBackup(values), L"Write registry backup");
  const FileFacts& facts = file_.Facts();
  const FILETIME time = kestrune::SplitFileTime(facts.write_time);
  const InstanceRecord record = {target_.rcs_path, target_.registry_branch, facts.attributes,
                                 time.dwHighDateTime, time.dwLowDateTime};
  WriteBackup(L"instance.txt", InstanceText(record), L"Write instance record");
  const std::vector<std::byte>& security = file_.Security().Bytes();
  WriteBackup(L"security.before.bin",
              {reinterpret_cast<const char*>(security.data()), security.size()},
              L"Write security backup");
  const std::string digest = Digest(calls_, rcs);
  file_.SetPlannedText(digest);
  AppendLog("Before SHA256=" + digest);
}

/// Copies DXP.RCS and compares the copy with the text on which the plan is based.
void WindowsStore::BackUpRcs(std::string_view rcs) {
  const ExtendedPath saved = BackupPath(kSavedRcs);
  DWORD code = TryWithRetries(calls_, [&] { return calls_.Copy(file_.Path(), saved, TRUE); });
  if (code != ERROR_SUCCESS) {
    throw FileStepFailure(L"Backup RCS", code);
  }
  // The copy may be only in the cache; it is flushed to disk before the original is replaced.
  FileHandle copy =
      OpenWithRetries(calls_, saved, {.access = GENERIC_WRITE, .sharing = FILE_SHARE_READ}, code);
  if (copy && !calls_.Flush(copy.Get())) {
    code = GetLastError();
  }
  if (code != ERROR_SUCCESS) {
    throw FileStepFailure(L"Backup RCS", code);
  }
  copy.Reset();
  if (ReadRcsBytes(calls_, saved) != rcs) {
    throw Refusal(L"Backup/source mismatch.");
  }
}

void WindowsStore::WriteBackup(std::wstring_view name, std::string_view bytes,
                               std::wstring_view step) {
  WriteNewFile(calls_, BackupPath(name), bytes, {step, step, step});
}

void WindowsStore::PrepareReplacement(std::string_view new_text) {
  const std::string digest = Digest(calls_, new_text);
  file_.Prepare(new_text, digest);
  AppendLog("Intended SHA256=" + digest);
}

std::string WindowsStore::ReadReplacement() {
  return file_.ReadReplacement();
}

void WindowsStore::CommitReplacement() {
  file_.Commit();
}

bool WindowsStore::HasReplacedRcs() const noexcept {
  return file_.Replaced();
}

void WindowsStore::CheckSourceSecurity() {
  file_.CheckSecurity();
}

void WindowsStore::WriteGlobalProjectsValue(const RegistryValue& value) {
  WriteRegistryValue(calls_, key_path_, value);
}

void WindowsStore::RemoveGlobalProjectsValue(const std::wstring& name) {
  RemoveRegistryValue(calls_, key_path_, name);
}

void WindowsStore::RollBackRcs() {
  file_.RollBack(BackupPath(kSavedRcs));
}

void WindowsStore::AppendLog(std::string_view line) {
  constexpr const wchar_t* kUnwritable = L"Cannot write operation log.";
  if (const DWORD code = EnsureBackupDirectory(); code != ERROR_SUCCESS) {
    throw kestrune::Failure{kUnwritable, code};
  }
  DWORD code = 0;
  const FileHandle log = OpenWithRetries(
      calls_, BackupPath(L"operation.log"),
      {.access = FILE_APPEND_DATA, .sharing = FILE_SHARE_READ, .disposition = OPEN_ALWAYS}, code);
  if (!log) {
    throw kestrune::Failure{kUnwritable, code};
  }
  const std::string text = (has_partial_line_ ? "\r\n" : "") + std::string(line) + "\r\n";
  DWORD written = 0;
  has_partial_line_ = true;
  if (!calls_.Write(log.Get(), text.data(), static_cast<DWORD>(text.size()), &written)) {
    kestrune::ThrowLastError(kUnwritable);
  }
  // A partial write has no error code of its own.
  if (written != text.size()) {
    throw kestrune::Failure{kUnwritable, ERROR_WRITE_FAULT};
  }
  has_partial_line_ = false;
  if (!calls_.Flush(log.Get())) {
    kestrune::ThrowLastError(L"Cannot flush operation log.");
  }
}

ExtendedPath WindowsStore::BackupPath(std::wstring_view name) const {
  return ExtendedPath(backup_directory_).Entry(name);
}

/// Creates the backup directory and clears leftovers, before the first change of a run. Returns
/// ERROR_SUCCESS or the code of the failed call.
DWORD WindowsStore::EnsureBackupDirectory() {
  if (has_backup_directory_) {
    return ERROR_SUCCESS;
  }
  try {
    kestrune::CreateDirectories(calls_, backup_directory_);
  } catch (const kestrune::Failure& failure) {
    return failure.code;
  }
  has_backup_directory_ = true;
  ClearLeftovers(calls_, file_.Path(), ExtendedPath(backup_directory_));
  return ERROR_SUCCESS;
}

}  // namespace altium_registration
