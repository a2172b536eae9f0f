#include "registration/rcs_file_win32.h"

#include <algorithm>
#include <utility>

#include "common/failure.h"
#include "common/file_win32.h"
#include "common/owners_win32.h"
#include "common/sha256_win32.h"
#include "registration/rcs_document.h"
#include "registration/step_failure.h"

namespace altium_registration {
namespace {

using kestrune::Failure;
using kestrune::FileHandle;

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
constexpr DWORD kLargestRead = DWORD{1} << 30U;

FileFacts ReadFacts(const std::wstring& extended_path, std::wstring_view step) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(extended_path.c_str(), GetFileExInfoStandard, &data)) {
    throw FileStepFailure(step, GetLastError());
  }
  return {data.dwFileAttributes,
          (std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32U) |
              data.ftLastWriteTime.dwLowDateTime,
          (std::uint64_t{data.nFileSizeHigh} << 32U) | data.nFileSizeLow};
}

/// Reads to the end of the buffer; a shorter file is a failure, too.
bool ReadAll(HANDLE file, std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const auto chunk = static_cast<DWORD>(std::min<std::size_t>(bytes.size() - done, kLargestRead));
    DWORD read = 0;
    if (!ReadFile(file, bytes.data() + done, chunk, &read, nullptr)) {
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

bool WriteAll(SystemCalls& calls, HANDLE file, std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto chunk = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), kLargestRead));
    if (!calls.Write(file, bytes.data(), chunk, &written)) {
      return false;
    }
    if (written == 0) {
      SetLastError(ERROR_WRITE_FAULT);
      return false;
    }
    bytes.remove_prefix(written);
  }
  return true;
}

bool IsIdentityRefusal(const Failure& failure) {
  return failure.code == ERROR_INVALID_OWNER || failure.code == ERROR_INVALID_PRIMARY_GROUP ||
         failure.code == ERROR_PRIVILEGE_NOT_HELD;
}

}  // namespace

std::string ReadRcsBytes(const std::wstring& extended_path) {
  const FileHandle file =
      kestrune::OpenForReading(extended_path, FILE_SHARE_READ | FILE_SHARE_DELETE);
  if (!file) {
    throw FileStepFailure(L"Open RCS", GetLastError());
  }
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file.Get(), &size)) {
    throw FileStepFailure(L"Read RCS size", GetLastError());
  }
  if (static_cast<std::uint64_t>(size.QuadPart) > kMaxRcsBytes) {
    throw Refusal(L"RCS exceeds limit.");
  }
  std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
  if (!ReadAll(file.Get(), bytes)) {
    throw FileStepFailure(L"Read RCS", GetLastError());
  }
  return bytes;
}

void WriteNewFile(SystemCalls& calls, const std::wstring& extended_path, std::string_view bytes,
                  SECURITY_ATTRIBUTES* security, const NewFileSteps& steps) {
  FileHandle file(calls.Create(extended_path, GENERIC_WRITE, 0, security, CREATE_NEW));
  if (!file) {
    throw FileStepFailure(steps.create, GetLastError());
  }
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
    calls.Delete(extended_path);
    throw FileStepFailure(failed_step, code);
  }
}

RcsFile::RcsFile(const std::wstring& path, SystemCalls& calls)
    : calls_(calls),
      path_(kestrune::ExtendedPath(path)),
      files_(NameWorkingFiles(path_)),
      facts_(ReadFacts(path_, L"Read profile metadata")) {
  constexpr DWORD kUnsafe =
      FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  if ((facts_.attributes & kUnsafe) != 0) {
    throw Refusal(L"Unsafe/read-only RCS target.");
  }
  security_ = ReadSecurity();
}

RcsFile::~RcsFile() {
  if (new_digest_.empty()) {
    return;
  }
  calls_.Delete(files_.temporary);
  if (wrote_recovery_) {
    calls_.Delete(files_.recovery);
  }
  if (IsMissing()) {
    return;
  }
  // Anything else than the two texts that are known is somebody's, and stays.
  const std::string displaced = DigestOf(files_.displaced);
  if (!displaced.empty() && (displaced == planned_digest_ || displaced == new_digest_)) {
    calls_.Delete(files_.displaced);
  }
}

std::string RcsFile::Read() const {
  return ReadRcsBytes(path_);
}

std::string RcsFile::ReadTemporary() const {
  return ReadRcsBytes(files_.temporary);
}

void RcsFile::Prepare(std::string_view new_text, std::string digest) {
  new_digest_ = std::move(digest);
  CreateWithIdentity(files_.temporary, new_text,
                     L"Cannot preserve replacement owner/group; original RCS unchanged.");
  temporary_security_ =
      ReadFileSecurity(calls_, files_.temporary, L"Query RCS security size", L"Read RCS security");
}

/// Creates a file with the owner and group of DXP.RCS; `refusal` says that they cannot be kept.
void RcsFile::CreateWithIdentity(const std::wstring& path, std::string_view bytes,
                                 std::wstring_view refusal) const {
  IdentityDescriptor identity(security_);
  try {
    WriteNewFile(calls_, path, bytes, identity.Attributes(), kWorkingFileSteps);
  } catch (const Failure& failure) {
    if (IsIdentityRefusal(failure)) {
      throw Failure{std::wstring(refusal), failure.code};
    }
    throw;
  }
  const FileSecurity created =
      ReadFileSecurity(calls_, path, L"Query RCS security size", L"Read RCS security");
  if (!created.SameOwnerAndGroup(security_)) {
    calls_.Delete(path);
    throw Refusal(refusal);
  }
}

void RcsFile::Commit() {
  RequireSameFacts();
  RequireSameReplacementSecurity();
  CheckSecurity();
  PutInPlace(files_.temporary, planned_digest_, L"Replace RCS", kSourceChanged);
  replaced_security_ = ReadSecurity();
  RestoreSecurity();
}

void RcsFile::RequireSameFacts() const {
  const FileFacts now = ReadFacts(path_, L"Recheck profile");
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

/// Replaces DXP.RCS and keeps the replaced file until it is known to be the expected one: another
/// program may have written in the very last moment.
void RcsFile::PutInPlace(const std::wstring& replacement, const std::string& displaced_digest,
                         std::wstring_view step, std::wstring_view lost_update) {
  if (!calls_.Replace(path_, replacement, files_.displaced)) {
    const DWORD code = GetLastError();
    RecoverFromFailedReplace();
    throw FileStepFailure(step, code);
  }
  replaced_ = true;
  if (DigestOf(files_.displaced) != displaced_digest) {
    PutDisplacedBack(lost_update);
  }
  calls_.Delete(files_.displaced);
}

/// A replacement is two renames; stopped between them it leaves no DXP.RCS at all, and the old file
/// under its displaced name.
void RcsFile::RecoverFromFailedReplace() {
  if (IsMissing()) {
    MoveDisplacedIntoGap();
  }
  lost_ = IsMissing();
  replaced_ = lost_ || DigestOf(path_) == new_digest_;
}

bool RcsFile::MoveDisplacedIntoGap() const {
  return calls_.Move(files_.displaced, path_, MOVEFILE_WRITE_THROUGH) != FALSE;
}

void RcsFile::PutDisplacedBack(std::wstring_view lost_update) {
  const bool is_back = calls_.Move(files_.displaced, path_,
                                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
  replaced_ = !is_back;
  keeps_foreign_text_ = !is_back;
  throw Refusal(lost_update);
}

void RcsFile::CheckSecurity() const {
  if (!(ReadSecurity() == security_)) {
    throw Refusal(kSecurityChanged);
  }
}

void RcsFile::RestoreSecurity() const {
  WriteDacl(calls_, path_, security_);
  const FileSecurity restored = ReadSecurity();
  if (!restored.SameDacl(security_)) {
    throw Refusal(L"RCS security readback mismatch.");
  }
  if (!restored.SameOwnerAndGroup(security_)) {
    throw Refusal(L"RCS owner/group changed; manual recovery required.");
  }
}

void RcsFile::RollBack(const std::wstring& saved_path) {
  const std::string saved = ReadRcsBytes(saved_path);
  if (kestrune::Sha256(saved) != planned_digest_) {
    throw Refusal(kRollbackInvalid);
  }
  RestoreFrom(saved);
  RestoreSecurity();
  if (Read() != saved) {
    throw Refusal(kRollbackInvalid);
  }
}

void RcsFile::RestoreFrom(const std::string& saved) {
  if (lost_) {
    RestoreIntoGap(saved);
    return;
  }
  RequireOwn(kForeignSecurity, kForeignContent);
  WriteRecovery(saved);
  RequireOwn(kChangedDuringRollback, kChangedDuringRollback);
  PutInPlace(files_.recovery, new_digest_, L"Restore RCS", kChangedDuringRollback);
}

/// Where our own replacement left no DXP.RCS.
void RcsFile::RestoreIntoGap(const std::string& saved) {
  if (!IsMissing()) {
    // Somebody filled the gap, perhaps another run with the very same text.
    throw Refusal(kForeignContent);
  }
  if (MoveDisplacedIntoGap()) {
    // The old file itself is back; what it holds is the user's, even if it is not what was saved.
    if (DigestOf(path_) != planned_digest_) {
      throw Refusal(kForeignContent);
    }
    return;
  }
  WriteRecovery(saved);
  if (!calls_.Move(files_.recovery, path_, MOVEFILE_WRITE_THROUGH)) {
    throw FileStepFailure(L"Restore RCS", GetLastError());
  }
}

/// A stale recovery file gives way.
void RcsFile::WriteRecovery(const std::string& saved) {
  calls_.Delete(files_.recovery);
  wrote_recovery_ = true;
  CreateWithIdentity(files_.recovery, saved,
                     L"Cannot preserve recovery owner/group; recovery replacement not attempted.");
}

/// Requires that DXP.RCS is what the commit left.
void RcsFile::RequireOwn(std::wstring_view security_refusal,
                         std::wstring_view content_refusal) const {
  bool security_is_ours = false;
  try {
    const FileSecurity now = ReadSecurity();
    security_is_ours =
        now == security_ || (!replaced_security_.Bytes().empty() && now == replaced_security_);
  } catch (const Failure&) {
    security_is_ours = false;
  }
  if (!security_is_ours) {
    throw Refusal(security_refusal);
  }
  if (keeps_foreign_text_ || DigestOf(path_) != new_digest_) {
    throw Refusal(content_refusal);
  }
}

bool RcsFile::IsMissing() const {
  return GetFileAttributesW(path_.c_str()) == INVALID_FILE_ATTRIBUTES &&
         GetLastError() == ERROR_FILE_NOT_FOUND;
}

/// Empty for a file that cannot be read.
std::string RcsFile::DigestOf(const std::wstring& path) {
  try {
    return kestrune::Sha256OfFile(path);
  } catch (...) {
    return {};
  }
}

FileSecurity RcsFile::ReadSecurity() const {
  return ReadFileSecurity(calls_, path_, L"Query RCS security size", L"Read RCS security");
}

}  // namespace altium_registration
