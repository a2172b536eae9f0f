// The states of DXP.RCS for the object that replaces it:
//
//   Untouched    the original file or another program's; this run has replaced nothing
//   Unknown      a replacement was called and its result is not determined yet
//   Replaced     our new text; the displaced file was the planned one
//   Unconfirmed  our new text; the displaced file was changed at the last moment or cannot be read,
//                and could not be moved back
//   Superseded   another program's file; the displaced file has the one that this run displaced
//   Lost         missing: a replacement stopped between its two renames
//
//   Untouched --Commit--> Unknown --> Replaced
//                            |------> Untouched    (failed without effect, or undone)
//                            |------> Unconfirmed, Superseded, Lost
//   Unknown     --RollBack--> the state that can be determined then
//   Replaced    --RollBack--> Untouched; Superseded or Lost when the restoration stops half way
//   Unconfirmed --RollBack--> Untouched: from the displaced file, else from the saved text
//   Lost        --RollBack--> Untouched: from the displaced file, else from the saved text
//
// Every state but Untouched counts as replaced, so that no message calls a rollback complete that
// was not tried.
#include "registration/store/rcs_file_win32.h"

#include <algorithm>

#include "common/failure/failure.h"
#include "common/files/file_time_win32.h"
#include "common/system/owners_win32.h"
#include "common/files/sha256_win32.h"
#include "registration/store/store_files_win32.h"
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
constexpr std::wstring_view kSecurityMismatch = L"RCS security readback mismatch.";
constexpr std::wstring_view kReadDisplaced = L"Read displaced RCS";
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

FileSecurity ReadSecurityOf(SystemCalls& calls, const ExtendedPath& path) {
  return ReadFileSecurity(calls, path, L"Query RCS security size", L"Read RCS security");
}

bool IsIdentityRefusal(const Failure& failure) {
  return failure.code == ERROR_INVALID_OWNER || failure.code == ERROR_INVALID_PRIMARY_GROUP ||
         failure.code == ERROR_PRIVILEGE_NOT_HELD;
}

}  // namespace

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
  own_securities_ = {security_};
}

RcsFile::~RcsFile() {
  try {
    DeleteWorkingFiles();
  } catch (...) {
    // A file that cannot be deleted is left to the next run.
  }
}

void RcsFile::DeleteWorkingFiles() const {
  // While DXP.RCS is missing because of this run, the user may need each of them.
  if (new_digest_.empty() || (state_ != State::Untouched && IsMissing(calls_, path_))) {
    return;
  }
  calls_.Delete(files_.replacement);
  if (recovery_) {
    calls_.Delete(*recovery_);
  }
  for (const ExtendedPath& displaced : {files_.displaced, files_.undone}) {
    // Any other text than the two known ones may be the user's and is kept.
    const Content content = FindContent(displaced).content;
    const bool is_kept =
        state_ == State::Superseded ||
        std::ranges::any_of(kept_, [&](const KeptFile& kept) { return kept.path == displaced; });
    if (!is_kept && (content == Content::Old || content == Content::New)) {
      calls_.Delete(displaced);
    }
  }
}

std::string RcsFile::Read() const {
  return ReadRcsBytes(calls_, path_);
}

std::string RcsFile::ReadReplacement() const {
  return ReadRcsBytes(calls_, files_.replacement);
}

// Preparing

void RcsFile::Prepare(std::string_view new_text, std::string digest) {
  new_digest_ = std::move(digest);
  bool created = false;
  CreateWithIdentity(files_.replacement, new_text,
                     L"Cannot preserve replacement owner/group; original RCS unchanged.", created);
  // A server may change the DACL. This is checked before DXP.RCS is replaced.
  WriteDacl(calls_, files_.replacement, security_);
  if (!ReadSecurityOf(calls_, files_.replacement).SameDacl(security_)) {
    throw Refusal(kSecurityMismatch);
  }
}

/// Creates a file with the owner and group of DXP.RCS; `refusal` is the text for when they cannot
/// be kept. Sets `created` as soon as the file exists and may be deleted.
void RcsFile::CreateWithIdentity(const ExtendedPath& path, std::string_view bytes,
                                 std::wstring_view refusal, bool& created) const {
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
  if (!ReadSecurityOf(calls_, path).SameOwnerAndGroup(security_)) {
    calls_.Delete(path);
    throw Refusal(refusal);
  }
}

// Committing

void RcsFile::Commit() {
  const DWORD code =
      ReplaceWithRetries(files_.replacement, files_.displaced, [&] { RequireUnchanged(); });
  if (code == ERROR_SUCCESS) {
    ConfirmReplacement();
    RestoreSecurity();
    return;
  }
  state_ = StateAfterFailure();
  if (state_ == State::Lost) {
    UndoHalfReplacement();
  } else if (state_ == State::Replaced) {
    ConfirmReplacement();
  }
  throw FileStepFailure(L"Replace RCS", code);
}

/// Throws when DXP.RCS or the replacement file has changed since this object read them.
void RcsFile::RequireUnchanged() const {
  const FileFacts now = ReadFacts(calls_, path_, L"Recheck profile");
  if (now.write_time != facts_.write_time || now.size != facts_.size) {
    throw Refusal(kSourceChanged);
  }
  constexpr std::wstring_view kStep = L"Replacement security changed before commit";
  if (!(ReadFileSecurity(calls_, files_.replacement, kStep, kStep) == security_)) {
    throw FileStepFailure(kStep, 0);
  }
  CheckSecurity();
}

/// Replaces DXP.RCS. Retries a sharing violation that changed nothing, and checks all requirements
/// again before each try. Returns the code of the last try; the state is Replaced when it
/// succeeded, else Unknown.
template <class Requirement>
DWORD RcsFile::ReplaceWithRetries(const ExtendedPath& replacement, const ExtendedPath& displaced,
                                  Requirement require) {
  const State before = state_;
  for (int tries = 1;; ++tries) {
    require();
    state_ = State::Unknown;
    if (calls_.Replace(path_, replacement, displaced)) {
      state_ = State::Replaced;
      return ERROR_SUCCESS;
    }
    const DWORD code = GetLastError();
    const bool changed_nothing =
        Exists(calls_, path_) && Exists(calls_, replacement) && IsMissing(calls_, displaced);
    if (tries == kTries || !MayBeTransient(code) || !changed_nothing) {
      return code;
    }
    state_ = before;
    calls_.Wait(kPauseBetweenTries);
  }
}

/// Returns the state after a replacement whose call failed. Changes nothing.
RcsFile::State RcsFile::StateAfterFailure() const {
  switch (FindContent(path_).content) {
    case Content::Missing:
      return State::Lost;
    case Content::Unreadable:
      return State::Unknown;
    case Content::Old:
      return State::Untouched;
    case Content::New:
      if (IsMissing(calls_, files_.replacement)) {
        return State::Replaced;
      }
      break;
    case Content::Foreign:
      break;
  }
  // The file is another program's, possibly another run's with the same text. A displaced file may
  // be the user's only copy of the old one.
  return Exists(calls_, files_.displaced) ? State::Superseded : State::Untouched;
}

/// Moves the displaced file back after a replacement that stopped between its two renames.
void RcsFile::UndoHalfReplacement() {
  if (!MoveUnlessExists(files_.displaced)) {
    state_ = StateAfterFailure();
    return;
  }
  state_ = State::Untouched;
  const Content back = FindContent(path_).content;
  if (back == Content::Foreign || back == Content::New) {
    throw Refusal(kSourceChanged);
  }
}

/// Deletes the displaced file when it has the text and security on which the plan is based. Moves
/// any other one back, even if it cannot be read, since it was DXP.RCS.
void RcsFile::ConfirmReplacement() {
  state_ = State::Unconfirmed;
  const Comparison comparison = CompareDisplaced(files_.displaced, Content::Old);
  if (comparison.match == Match::Expected) {
    state_ = State::Replaced;
    DeleteDisplaced(files_.displaced);
    own_securities_.push_back(ReadSecurity());
    return;
  }
  if (MoveDisplacedBack(files_.displaced, Content::New)) {
    state_ = State::Untouched;
  }
  if (comparison.match == Match::Unreadable) {
    throw FileStepFailure(kReadDisplaced, comparison.code);
  }
  throw Refusal(comparison.match == Match::ForeignSecurity ? kSecurityChanged : kSourceChanged);
}

/// Compares a displaced file with the content and the security that it should have.
RcsFile::Comparison RcsFile::CompareDisplaced(const ExtendedPath& displaced,
                                              Content expected) const {
  const Finding found = FindContent(displaced);
  if (found.content == Content::Unreadable || found.content == Content::Missing) {
    return {Match::Unreadable, found.code};
  }
  if (found.content != expected) {
    return {Match::ForeignContent};
  }
  try {
    const bool is_own = IsOwn(ReadSecurityOf(calls_, displaced));
    return {is_own ? Match::Expected : Match::ForeignSecurity};
  } catch (const Failure& failure) {
    return {Match::Unreadable, failure.code};
  }
}

void RcsFile::DeleteDisplaced(const ExtendedPath& displaced) const {
  static_cast<void>(TryWithRetries(calls_, [&] { return calls_.Delete(displaced); }));
}

/// Moves a displaced file back over DXP.RCS if that still has the text and the security that this
/// run gave it.
bool RcsFile::MoveDisplacedBack(const ExtendedPath& displaced, Content ours) const {
  for (int tries = 1;; ++tries) {
    if (FindContent(path_).content != ours || !(HasOwnSecurity() || HasSecurityOf(displaced))) {
      return false;
    }
    if (calls_.Move(displaced, path_, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      return true;
    }
    if (const DWORD code = GetLastError(); tries == kTries || !MayBeTransient(code)) {
      return false;
    }
    calls_.Wait(kPauseBetweenTries);
  }
}

bool RcsFile::MoveUnlessExists(const ExtendedPath& source) const {
  return MoveWithRetries(calls_, source, path_, MOVEFILE_WRITE_THROUGH) == ERROR_SUCCESS;
}

// Security

void RcsFile::CheckSecurity() const {
  if (!(ReadSecurity() == security_)) {
    throw Refusal(kSecurityChanged);
  }
}

void RcsFile::RestoreSecurity() {
  WriteDacl(calls_, path_, security_);
  const FileSecurity restored = ReadSecurity();
  const bool is_exact_dacl = restored.SameDacl(security_);
  if (!restored.SameOwnerAndGroup(security_)) {
    throw Refusal(is_exact_dacl ? L"RCS owner/group changed; manual recovery required."
                                : kSecurityMismatch);
  }
  if (!is_exact_dacl) {
    // The DACL as stored by Windows counts as our own change.
    own_securities_.push_back(restored);
    throw Refusal(kSecurityMismatch);
  }
  own_securities_.resize(1);
}

FileSecurity RcsFile::ReadSecurity() const {
  return ReadSecurityOf(calls_, path_);
}

bool RcsFile::IsOwn(const FileSecurity& security) const {
  return std::ranges::any_of(own_securities_,
                             [&](const FileSecurity& own) { return security == own; });
}

/// Returns whether DXP.RCS has a security of ours; false also when it cannot be read.
bool RcsFile::HasOwnSecurity() const {
  try {
    return IsOwn(ReadSecurity());
  } catch (const Failure&) {
    return false;
  }
}

bool RcsFile::HasSecurityOf(const ExtendedPath& displaced) const {
  try {
    return ReadSecurity() == ReadSecurityOf(calls_, displaced);
  } catch (const Failure&) {
    return false;
  }
}

// Rolling back

void RcsFile::RollBack(const ExtendedPath& saved_path) {
  if (state_ == State::Unknown) {
    state_ = StateAfterFailure();
  }
  if (state_ == State::Untouched || (state_ == State::Unconfirmed && RestoreUnconfirmed())) {
    return;
  }
  if (state_ == State::Superseded) {
    throw Refusal(kForeignContent);
  }
  if (state_ == State::Lost) {
    RestoreMissing(saved_path);
  } else {
    RestoreOver(saved_path);
  }
  if (Digest(calls_, Read()) != planned_digest_) {
    throw Refusal(kRollbackInvalid);
  }
  state_ = State::Untouched;
  RequireNothingKept();
}

/// Moves the displaced file back, even if it cannot be read. Returns false when that failed and
/// DXP.RCS must be restored from its backup; throws when it must not be restored.
bool RcsFile::RestoreUnconfirmed() {
  if (MoveDisplacedBack(files_.displaced, Content::New)) {
    state_ = State::Untouched;
    return true;
  }
  const Comparison comparison = CompareDisplaced(files_.displaced, Content::Old);
  switch (comparison.match) {
    case Match::ForeignContent:
      throw Refusal(kForeignContent);
    case Match::ForeignSecurity:
      throw Refusal(kForeignSecurity);
    case Match::Unreadable:
      kept_.push_back({files_.displaced, comparison.code});
      break;
    case Match::Expected:
      break;
  }
  return false;
}

/// Restores the saved text over our own.
void RcsFile::RestoreOver(const ExtendedPath& saved_path) {
  RequireOwn(kForeignSecurity, kForeignContent);
  WriteRecovery(saved_path);
  const DWORD code = ReplaceWithRetries(*recovery_, files_.undone, [&] {
    RequireOwn(kChangedDuringRollback, kChangedDuringRollback);
  });
  if (code != ERROR_SUCCESS) {
    FinishRestoration(code);
  }
  // The recovery file has become DXP.RCS; a file with its name is another run's.
  recovery_.reset();
  CheckUndone();
  RestoreSecurity();
}

/// Completes a restoration that reported a failure but took effect, or stopped between its two
/// renames. Throws when it cannot.
void RcsFile::FinishRestoration(DWORD code) {
  const Content now = FindContent(path_).content;
  if (now == Content::Old && IsMissing(calls_, *recovery_)) {
    return;
  }
  if (now == Content::Missing) {
    const Content undone = FindContent(files_.undone).content;
    const bool is_foreign = undone == Content::Foreign || undone == Content::Old;
    if (!is_foreign && MoveUnlessExists(*recovery_)) {
      return;
    }
    // The text that was to be removed is better than no file.
    state_ = MoveUnlessExists(files_.undone) ? State::Replaced : State::Lost;
  } else {
    state_ = State::Replaced;
  }
  throw FileStepFailure(L"Restore RCS", code);
}

/// Deletes the file that the restoration displaced if it is ours. Moves back one that another
/// program has changed, and keeps one that cannot be read.
void RcsFile::CheckUndone() {
  const Comparison comparison = CompareDisplaced(files_.undone, Content::New);
  if (comparison.match == Match::Expected) {
    DeleteDisplaced(files_.undone);
  } else if (comparison.match == Match::Unreadable) {
    if (!IsMissing(calls_, files_.undone)) {
      kept_.push_back({files_.undone, comparison.code});
    }
  } else {
    if (!MoveDisplacedBack(files_.undone, Content::Old)) {
      kept_.push_back({files_.undone, 0});
    }
    state_ = State::Superseded;
    throw Refusal(kChangedDuringRollback);
  }
}

/// Restores a DXP.RCS that our replacement left missing: from the displaced file, which has the
/// user's content and security, or else from the saved text.
void RcsFile::RestoreMissing(const ExtendedPath& saved_path) {
  if (!IsMissing(calls_, path_)) {
    // Another program has created the file, possibly another run with the same text.
    state_ = State::Superseded;
    throw Refusal(kForeignContent);
  }
  if (MoveUnlessExists(files_.displaced)) {
    state_ = State::Untouched;
    const Content back = FindContent(path_).content;
    if (back == Content::Foreign || back == Content::New) {
      throw Refusal(kForeignContent);
    }
    if (!(ReadSecurity() == security_)) {
      throw Refusal(kForeignSecurity);
    }
    return;
  }
  const Finding displaced = FindContent(files_.displaced);
  if (displaced.content == Content::Foreign || displaced.content == Content::New) {
    throw Refusal(kForeignContent);
  }
  if (displaced.content == Content::Unreadable) {
    kept_.push_back({files_.displaced, displaced.code});
  }
  WriteRecovery(saved_path);
  if (const DWORD code = MoveWithRetries(calls_, *recovery_, path_, MOVEFILE_WRITE_THROUGH)) {
    throw FileStepFailure(L"Restore RCS", code);
  }
  recovery_.reset();
  RestoreSecurity();
}

/// Writes the recovery file: the saved text beside DXP.RCS. Deletes an existing one; if that fails,
/// uses the spare name.
void RcsFile::WriteRecovery(const ExtendedPath& saved_path) {
  const std::string saved = ReadRcsBytes(calls_, saved_path);
  if (Digest(calls_, saved) != planned_digest_) {
    throw Refusal(kRollbackInvalid);
  }
  if (!calls_.Delete(files_.recovery) && GetLastError() == ERROR_ACCESS_DENIED) {
    calls_.SetAttributes(files_.recovery, FILE_ATTRIBUTE_NORMAL);
    calls_.Delete(files_.recovery);
  }
  constexpr std::wstring_view kRefusal =
      L"Cannot preserve recovery owner/group; recovery replacement not attempted.";
  const bool is_free = IsMissing(calls_, files_.recovery);
  const ExtendedPath& path = is_free ? files_.recovery : files_.spare_recovery;
  recovery_ = path;
  bool created = false;
  try {
    CreateWithIdentity(path, saved, kRefusal, created);
  } catch (...) {
    // cppcheck-suppress knownConditionTrueFalse; set through the reference
    if (!created) {
      // A file of that name belongs to another run.
      recovery_.reset();
    }
    throw;
  }
}

/// Throws a failure that names the displaced files that were kept, if any, although DXP.RCS is
/// restored.
void RcsFile::RequireNothingKept() const {
  std::wstring names;
  for (const KeptFile& kept : kept_) {
    names.append(names.empty() ? L"" : L" and ").append(kept.path.Name());
  }
  if (!names.empty()) {
    throw FileStepFailure(std::wstring(kReadDisplaced) + L", kept as " + names, kept_.front().code);
  }
}

/// Throws unless DXP.RCS has the text and security that the commit gave it.
void RcsFile::RequireOwn(std::wstring_view security_refusal,
                         std::wstring_view content_refusal) const {
  if (IsMissing(calls_, path_)) {
    throw Refusal(content_refusal);
  }
  if (!HasOwnSecurity()) {
    throw Refusal(security_refusal);
  }
  const Finding now = FindContent(path_);
  if (now.content == Content::Unreadable) {
    throw FileStepFailure(L"Read RCS", now.code);
  }
  if (now.content != Content::New) {
    throw Refusal(content_refusal);
  }
}

/// Returns the content of a file, opened with retries and full sharing.
RcsFile::Finding RcsFile::FindContent(const ExtendedPath& path) const {
  DWORD code = 0;
  const FileHandle file = OpenWithRetries(
      calls_, path,
      {.access = GENERIC_READ, .sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE},
      code);
  if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND) {
    return {Content::Missing, code};
  }
  if (!file) {
    return {Content::Unreadable, code};
  }
  try {
    const std::string digest = kestrune::Sha256OfFile(calls_, file.Get());
    return {digest == planned_digest_ ? Content::Old
            : digest == new_digest_   ? Content::New
                                      : Content::Foreign};
  } catch (const Failure& failure) {
    return {Content::Unreadable, failure.code};
  }
}

}  // namespace altium_registration
