#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "common/owners_win32.h"
#include "registration/transaction/file_security_win32.h"
#include "common/system_calls_win32.h"
#include "registration/transaction/working_files_win32.h"

namespace altium_registration {

/// Attributes, last-write time (100 nanoseconds since 1601, UTC) and size in bytes as the directory
/// shows them.
struct FileFacts {
  std::uint32_t attributes = 0;
  std::uint64_t write_time = 0;
  std::uint64_t size = 0;
};

/// DXP.RCS of one instance with the files that stand beside it while it is replaced.
///
/// The order is: SetPlannedText, Prepare, ReadTemporary, Commit; RollBack after a commit that got
/// as far as Replaced(). At every instant DXP.RCS is the whole old or the whole new file, or, where
/// Windows loses it half way, missing; then a working file holds it, and none is ever deleted.
/// Failures are thrown as kestrune::Failure with their complete text.
class RcsFile {
 public:
  /// Looks at the file; refuses one that is read-only, a directory or a link. Changes nothing.
  RcsFile(const std::wstring& path, kestrune::SystemCalls& calls);
  RcsFile(const RcsFile&) = delete;
  RcsFile& operator=(const RcsFile&) = delete;
  /// Takes away the working files that it created; while DXP.RCS is missing, none.
  ~RcsFile();

  [[nodiscard]] const kestrune::ExtendedPath& Path() const { return path_; }
  [[nodiscard]] const FileFacts& Facts() const { return facts_; }
  [[nodiscard]] const FileSecurity& Security() const { return security_; }

  /// The bytes of the file and of the temporary one, by the rules of ReadRcsBytes.
  [[nodiscard]] std::string Read() const;
  [[nodiscard]] std::string ReadTemporary() const;

  /// Says by its SHA-256 which text the file must have when it is replaced.
  void SetPlannedText(std::string digest) { planned_digest_ = std::move(digest); }

  /// Writes the new text, whose SHA-256 is `digest`, to the temporary file.
  void Prepare(std::string_view new_text, std::string digest);
  /// Puts the temporary file in the place of DXP.RCS where nobody changed either since this object
  /// saw them, then restores the exact security. Where the replaced file was not the planned text
  /// after all, it goes back as far as possible.
  void Commit();
  /// Whether the file counts as replaced by this object; yes where that cannot be told.
  [[nodiscard]] bool Replaced() const noexcept { return replaced_; }
  /// Throws when owner, group or DACL are not those of the beginning.
  void CheckSecurity() const;
  /// Writes the DACL of the beginning and reads everything back. Throws when owner, group or DACL
  /// differ then.
  void RestoreSecurity();
  /// Puts the text of the saved file back, or the displaced file itself where DXP.RCS is missing.
  void RollBack(const kestrune::ExtendedPath& saved_path);

 private:
  void CreateWithIdentity(const kestrune::ExtendedPath& path, std::string_view bytes, bool& created,
                          std::wstring_view refusal) const;
  void RequireSameFacts() const;
  void RequireSameReplacementSecurity() const;
  void DropDisplaced(const std::string& expected, const std::string& ours,
                     std::wstring_view lost_update);
  void TakeBackFailedReplacement();
  void JudgeFailedReplacement();
  bool MoveDisplacedIntoGap() const;
  void RequireOwn(std::wstring_view security_refusal, std::wstring_view content_refusal) const;
  [[nodiscard]] bool HasOwnSecurity() const;
  void RestoreOver(const kestrune::ExtendedPath& saved_path);
  [[nodiscard]] bool FinishHalfRestoration() const;
  void FillGap(const kestrune::ExtendedPath& saved_path);
  void WriteRecovery(const kestrune::ExtendedPath& saved_path);
  [[nodiscard]] bool IsMissing() const;
  [[nodiscard]] std::string DigestOf(const kestrune::ExtendedPath& path) const;
  [[nodiscard]] FileSecurity ReadSecurity() const;

  kestrune::SystemCalls& calls_;
  kestrune::ExtendedPath path_;
  WorkingFiles files_;
  FileFacts facts_;
  FileSecurity security_;
  FileSecurity temporary_security_;
  /// What the file had right after our own replacement, before the exact one was restored.
  FileSecurity replaced_security_;
  /// What it had after the exact one was written.
  FileSecurity restored_security_;
  std::string planned_digest_;
  std::string new_digest_;
  bool replaced_ = false;
  /// A replacement that stopped half way left no DXP.RCS.
  bool lost_ = false;
  /// A replacement failed, and DXP.RCS could not be read after it.
  bool is_outcome_unknown_ = false;
  /// The displaced file is somebody's only copy of a text.
  bool keeps_displaced_ = false;
  /// DXP.RCS.recovery is a file that this object created.
  bool owns_recovery_ = false;
};

/// Reads a file of at most 8,388,608 bytes whole, sharing reading and deletion. Throws the failure
/// of "Open RCS", "Read RCS size" or "Read RCS", or "RCS exceeds limit.".
std::string ReadRcsBytes(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path);

/// What a failing step is called.
struct NewFileSteps {
  std::wstring_view create;
  std::wstring_view write;
  std::wstring_view flush;
};

/// Creates a file that must not exist. Throws the failure of the step.
kestrune::FileHandle CreateNewFile(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                                   SECURITY_ATTRIBUTES* security, std::wstring_view step);

/// Writes the bytes to a file that was just created and flushes them; one that cannot be completed
/// is deleted. Throws the failure of the step.
void FillNewFile(kestrune::SystemCalls& calls, kestrune::FileHandle file,
                 const kestrune::ExtendedPath& path, std::string_view bytes,
                 const NewFileSteps& steps);

/// Both of them, with the security that the folder gives.
void WriteNewFile(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                  std::string_view bytes, const NewFileSteps& steps);

/// The SHA-256 of the bytes. Throws "SHA256 unavailable." or the failure of "SHA provider".
std::string Digest(kestrune::SystemCalls& calls, std::string_view bytes);

}  // namespace altium_registration
