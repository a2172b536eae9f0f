#include "registration/transaction/rcs_file_win32.h"

#include <algorithm>
#include <utility>

#include "common/failure.h"
#include "common/file_time_win32.h"
#include "common/file_win32.h"
#include "common/owners_win32.h"
#include "common/sha256_win32.h"
#include "registration/rcs/rcs.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

using kestrune::ExtendedPath;
using kestrune::Failure;
using kestrune::FileHandle;
using kestrune::SystemCalls;

constexpr std::wstring_view kSourceChanged = L"Source metadata/content changed.";
constexpr std::wstring_view kSecurityChanged = L"Source security changed or was not preserved.";
constexpr std::wstring_view kForeignSecurity =
    L"Concurrent/unknown RCS security change; refusing rollback overwrite.";
constexpr std::wstring_view kForeignContent =
    L"Concurrent RCS change; refusing rollback overwrite.";
constexpr std::wstring_view kChangedDuringRollback =
    L"RCS content/security changed during rollback.";
constexpr std::wstring_view kRollbackInvalid = L"Rollback file validation failed.";
constexpr NewFileSteps kWorkingFileSteps = {
    L"Create recovery/temp file", L"Write recovery/temp file", L"Flush recovery/temp file"};

FileFacts ReadFacts(SystemCalls& calls, const ExtendedPath& path, std::wstring_view step) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!calls.GetAttributes(path, &data)) {
    throw FileStepFailure(step, GetLastError());
  }
  return {data.dwFileAttributes, kestrune::JoinFileTime(data.ftLastWriteTime),
          kestrune::JoinWords(data.nFileSizeHigh, data.nFileSizeLow)};
}

bool WriteAll(SystemCalls& calls, HANDLE file, std::string_view bytes) {
  return kestrune::WriteAll(bytes, [&](const void* chunk, DWORD size, DWORD* written) {
    return calls.Write(file, chunk, size, written);
  });
}

/// Reads as many bytes as `bytes` has. False with the thread's last error; ERROR_HANDLE_EOF when
/// there are fewer.
bool ReadAll(SystemCalls& calls, HANDLE file, std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    DWORD read = 0;
    if (!calls.Read(file, bytes.data() + done, static_cast<DWORD>(bytes.size() - done), &read)) {
      return false;
    }
    if (read == 0) {
      SetLastError(ERROR_HANDLE_EOF);
      return false;
    }
    done += read;
  }
  return true;
}

bool IsIdentityRefusal(const Failure& failure) {
  return failure.code == ERROR_INVALID_OWNER || failure.code == ERROR_INVALID_PRIMARY_GROUP ||
         failure.code == ERROR_PRIVILEGE_NOT_HELD;
}

}  // namespace

std::string ReadRcsBytes(SystemCalls& calls, const ExtendedPath& path) {
  const FileHandle file(
      calls.Create(path, {.access = GENERIC_READ, .sharing = FILE_SHARE_READ | FILE_SHARE_DELETE}));
  if (!file) {
    throw FileStepFailure(L"Open RCS", GetLastError());
  }
  LARGE_INTEGER size{};
  if (!calls.GetSize(file.Get(), &size)) {
    throw FileStepFailure(L"Read RCS size", GetLastError());
  }
  if (static_cast<std::uint64_t>(size.QuadPart) > kMaxRcsBytes) {
    throw Refusal(L"RCS exceeds limit.");
  }
  std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
  if (!ReadAll(calls, file.Get(), bytes)) {
    throw FileStepFailure(L"Read RCS", GetLastError());
  }
  return bytes;
}

FileHandle CreateNewFile(SystemCalls& calls, const ExtendedPath& path,
                         SECURITY_ATTRIBUTES* security, std::wstring_view step) {
  FileHandle file(calls.Create(
      path, {.access = GENERIC_WRITE, .disposition = CREATE_NEW, .security = security}));
  if (!file) {
    throw FileStepFailure(step, GetLastError());
  }
  return file;
}

void FillNewFile(SystemCalls& calls, FileHandle file, const ExtendedPath& path,
                 std::string_view bytes, const NewFileSteps& steps) {
  std::wstring_view failed_step;
  DWORD code = 0;
  if (!WriteAll(calls, file.Get(), bytes)) {
    code = GetLastError();
    failed_step = steps.write;
  } else if (!calls.Flush(file.Get())) {
    code = GetLastError();
    failed_step = steps.flush;
  }
  if (!failed_step.empty()) {
    file.Reset();
    calls.Delete(path);
    throw FileStepFailure(failed_step, code);
  }
}

void WriteNewFile(SystemCalls& calls, const ExtendedPath& path, std::string_view bytes,
                  const NewFileSteps& steps) {
  FillNewFile(calls, CreateNewFile(calls, path, nullptr, steps.create), path, bytes, steps);
}

std::string Digest(SystemCalls& calls, std::string_view bytes) {
  try {
    return kestrune::Sha256(calls, bytes);
  } catch (const Failure& failure) {
    if (failure.code != 0) {
      throw FileStepFailure(failure.text, failure.code);
    }
    throw;
  }
}

RcsFile::RcsFile(const std::wstring& path, SystemCalls& calls)
    : calls_(calls),
      path_(path),
      files_(NameWorkingFiles(calls_, path_)),
      facts_(ReadFacts(calls_, path_, L"Read profile metadata")) {
  constexpr DWORD kUnsafe =
      FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  if ((facts_.attributes & kUnsafe) != 0) {
    throw Refusal(L"Unsafe/read-only RCS target.");
  }
  security_ = ReadSecurity();
}

RcsFile::~RcsFile() {
  // While DXP.RCS is not there, each of the working files may be what a user needs to put it back.
  if (new_digest_.empty() || !Exists(calls_, path_)) {
    return;
  }
  calls_.Delete(files_.temporary);
  if (owns_recovery_) {
    calls_.Delete(files_.recovery);
  }
  // Anything else than the two texts that are known is somebody's, and stays.
  const std::string displaced = keeps_displaced_ ? std::string() : DigestOf(files_.displaced);
  if (!displaced.empty() && (displaced == planned_digest_ || displaced == new_digest_)) {
    calls_.Delete(files_.displaced);
  }
}

std::string RcsFile::Read() const {
  return ReadRcsBytes(calls_, path_);
}

std::string RcsFile::ReadTemporary() const {
  return ReadRcsBytes(calls_, files_.temporary);
}

void RcsFile::Prepare(std::string_view new_text, std::string digest) {
  new_digest_ = std::move(digest);
  // The name is this run's alone; whatever stands there may go.
  bool is_ours = false;
  CreateWithIdentity(files_.temporary, new_text, is_ours,
                     L"Cannot preserve replacement owner/group; original RCS unchanged.");
  temporary_security_ =
      ReadFileSecurity(calls_, files_.temporary, L"Query RCS security size", L"Read RCS security");
}

/// Creates a file with the owner and group of DXP.RCS; `refusal` says that they cannot be kept.
/// `created` is set as soon as the file is ours to delete.
void RcsFile::CreateWithIdentity(const ExtendedPath& path, std::string_view bytes, bool& created,
                                 std::wstring_view refusal) const {
  IdentityDescriptor identity(calls_, security_);
  try {
    FileHandle file = CreateNewFile(calls_, path, identity.Attributes(), kWorkingFileSteps.create);
    created = true;
    FillNewFile(calls_, std::move(file), path, bytes, kWorkingFileSteps);
  } catch (const Failure& failure) {
    if (IsIdentityRefusal(failure)) {
      throw Failure{std::wstring(refusal), failure.code};
    }
    throw;
  }
  const FileSecurity made =
      ReadFileSecurity(calls_, path, L"Query RCS security size", L"Read RCS security");
  if (!made.SameOwnerAndGroup(security_)) {
    calls_.Delete(path);
    throw Refusal(refusal);
  }
}

void RcsFile::Commit() {
  RequireSameFacts();
  RequireSameReplacementSecurity();
  CheckSecurity();
  if (!calls_.Replace(path_, files_.temporary, files_.displaced)) {
    const DWORD code = GetLastError();
    TakeBackFailedReplacement();
    throw FileStepFailure(L"Replace RCS", code);
  }
  replaced_ = true;
  DropDisplaced(planned_digest_, new_digest_, kSourceChanged);
  replaced_security_ = ReadSecurity();
  RestoreSecurity();
}

void RcsFile::RequireSameFacts() const {
  const FileFacts now = ReadFacts(calls_, path_, L"Recheck profile");
  if (now.write_time != facts_.write_time || now.size != facts_.size) {
    throw Refusal(kSourceChanged);
  }
}

void RcsFile::RequireSameReplacementSecurity() const {
  constexpr std::wstring_view kStep = L"Replacement security changed before commit";
  if (!(ReadFileSecurity(calls_, files_.temporary, kStep, kStep) == temporary_security_)) {
    throw FileStepFailure(kStep, 0);
  }
}

/// Drops the file that a replacement took away, when it is the expected one. Another program may
/// have written in the very last moment: then its text goes back, or stays where it is when DXP.RCS
/// no longer holds what we put there.
void RcsFile::DropDisplaced(const std::string& expected, const std::string& ours,
                            std::wstring_view lost_update) {
  if (DigestOf(files_.displaced) == expected) {
    calls_.Delete(files_.displaced);
    return;
  }
  const bool is_back = DigestOf(path_) == ours &&
                       calls_.Move(files_.displaced, path_,
                                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
  replaced_ = !is_back;
  keeps_displaced_ = !is_back;
  throw Refusal(lost_update);
}

/// A replacement is two renames; stopped between them it leaves no DXP.RCS at all, and the old file
/// under its displaced name.
void RcsFile::TakeBackFailedReplacement() {
  if (!IsMissing() || !MoveDisplacedIntoGap()) {
    JudgeFailedReplacement();
    return;
  }
  const std::string back = DigestOf(path_);
  if (!back.empty() && back != planned_digest_) {
    throw Refusal(kSourceChanged);
  }
}

/// Tells whether DXP.RCS counts as replaced after a call that failed. What cannot be told counts,
/// so that nobody hears of a complete rollback.
void RcsFile::JudgeFailedReplacement() {
  lost_ = IsMissing();
  const std::string now = lost_ ? std::string() : DigestOf(path_);
  is_outcome_unknown_ = !lost_ && now.empty();
  replaced_ = lost_ || is_outcome_unknown_;
  if (replaced_ || now == planned_digest_) {
    return;
  }
  if (now == new_digest_ && !Exists(calls_, files_.temporary)) {
    replaced_ = true;
    DropDisplaced(planned_digest_, new_digest_, kSourceChanged);
    replaced_security_ = ReadSecurity();
    return;
  }
  // Another program's text, perhaps the very same one from another run. If the old file was taken
  // away for it, it must not get lost.
  replaced_ = keeps_displaced_ = Exists(calls_, files_.displaced);
}

bool RcsFile::MoveDisplacedIntoGap() const {
  return calls_.Move(files_.displaced, path_, MOVEFILE_WRITE_THROUGH) != FALSE;
}

void RcsFile::CheckSecurity() const {
  if (!(ReadSecurity() == security_)) {
    throw Refusal(kSecurityChanged);
  }
}

void RcsFile::RestoreSecurity() {
  WriteDacl(calls_, path_, security_);
  const FileSecurity restored = ReadSecurity();
  if (!restored.SameOwnerAndGroup(security_)) {
    throw Refusal(restored.SameDacl(security_)
                      ? L"RCS owner/group changed; manual recovery required."
                      : L"RCS security readback mismatch.");
  }
  // What Windows made of the list that was written is our own doing, even if it is not that list.
  restored_security_ = restored;
  if (!restored.SameDacl(security_)) {
    throw Refusal(L"RCS security readback mismatch.");
  }
}

void RcsFile::RollBack(const ExtendedPath& saved_path) {
  if (is_outcome_unknown_) {
    JudgeFailedReplacement();
  }
  if (!replaced_) {
    return;
  }
  if (lost_) {
    FillGap(saved_path);
  } else {
    RestoreOver(saved_path);
  }
  if (Digest(calls_, Read()) != planned_digest_) {
    throw Refusal(kRollbackInvalid);
  }
}

void RcsFile::RestoreOver(const ExtendedPath& saved_path) {
  RequireOwn(kForeignSecurity, kForeignContent);
  WriteRecovery(saved_path);
  RequireOwn(kChangedDuringRollback, kChangedDuringRollback);
  if (calls_.Replace(path_, files_.recovery, files_.displaced)) {
    DropDisplaced(new_digest_, planned_digest_, kChangedDuringRollback);
  } else {
    const DWORD code = GetLastError();
    if (!FinishHalfRestoration()) {
      throw FileStepFailure(L"Restore RCS", code);
    }
  }
  RestoreSecurity();
}

/// A restoration that stopped between its two renames. False when it did not stop there, or when it
/// can only be taken back.
bool RcsFile::FinishHalfRestoration() const {
  if (!IsMissing()) {
    return false;
  }
  const bool is_ours =
      DigestOf(files_.displaced) == new_digest_ || !Exists(calls_, files_.displaced);
  if (is_ours && calls_.Move(files_.recovery, path_, MOVEFILE_WRITE_THROUGH)) {
    return true;
  }
  MoveDisplacedIntoGap();
  return false;
}

/// Where our own replacement left no DXP.RCS. The file that it took away comes back before any copy
/// does; what it holds, and its security, are the user's.
void RcsFile::FillGap(const ExtendedPath& saved_path) {
  if (!IsMissing()) {
    // Somebody filled the gap, perhaps another run with the very same text.
    keeps_displaced_ = true;
    throw Refusal(kForeignContent);
  }
  if (MoveDisplacedIntoGap()) {
    if (DigestOf(path_) != planned_digest_) {
      throw Refusal(kForeignContent);
    }
    if (!(ReadSecurity() == security_)) {
      throw Refusal(kForeignSecurity);
    }
    return;
  }
  if (Exists(calls_, files_.displaced) && DigestOf(files_.displaced) != planned_digest_) {
    throw Refusal(kForeignContent);
  }
  WriteRecovery(saved_path);
  if (!calls_.Move(files_.recovery, path_, MOVEFILE_WRITE_THROUGH)) {
    throw FileStepFailure(L"Restore RCS", GetLastError());
  }
  RestoreSecurity();
}

/// A stale recovery file gives way.
void RcsFile::WriteRecovery(const ExtendedPath& saved_path) {
  const std::string saved = ReadRcsBytes(calls_, saved_path);
  if (Digest(calls_, saved) != planned_digest_) {
    throw Refusal(kRollbackInvalid);
  }
  calls_.Delete(files_.recovery);
  CreateWithIdentity(files_.recovery, saved, owns_recovery_,
                     L"Cannot preserve recovery owner/group; recovery replacement not attempted.");
}

/// Requires that DXP.RCS is what the commit left.
void RcsFile::RequireOwn(std::wstring_view security_refusal,
                         std::wstring_view content_refusal) const {
  if (!HasOwnSecurity()) {
    throw Refusal(security_refusal);
  }
  if (keeps_displaced_ || DigestOf(path_) != new_digest_) {
    throw Refusal(content_refusal);
  }
}

/// Whether DXP.RCS has one of the securities that it can have through this object alone: the saved
/// one, that of the temporary file, and those read right after replacing and after restoring.
bool RcsFile::HasOwnSecurity() const {
  try {
    const FileSecurity now = ReadSecurity();
    const FileSecurity* const known[] = {&security_, &temporary_security_, &replaced_security_,
                                         &restored_security_};
    return std::ranges::any_of(known, [&](const FileSecurity* security) {
      return !security->Bytes().empty() && now == *security;
    });
  } catch (const Failure&) {
    return false;
  }
}

bool RcsFile::IsMissing() const {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  return !calls_.GetAttributes(path_, &data) && GetLastError() == ERROR_FILE_NOT_FOUND;
}

/// Empty for a file that cannot be read.
std::string RcsFile::DigestOf(const ExtendedPath& path) const {
  try {
    return kestrune::Sha256OfFile(calls_, path);
  } catch (...) {
    return {};
  }
}

FileSecurity RcsFile::ReadSecurity() const {
  return ReadFileSecurity(calls_, path_, L"Query RCS security size", L"Read RCS security");
}

}  // namespace altium_registration
