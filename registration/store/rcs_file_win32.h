#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/system/system_calls_win32.h"
#include "registration/store/file_security_win32.h"
#include "registration/store/working_files_win32.h"

namespace altium_registration {

/// Attributes, last-write time (100 nanoseconds since 1601, UTC) and size in bytes as the directory
/// shows them.
struct FileFacts {
  std::uint32_t attributes = 0;
  std::uint64_t write_time = 0;
  std::uint64_t size = 0;
};

/// DXP.RCS of one instance with the files beside it while it is replaced.
///
/// The order is: SetPlannedText, Prepare, ReadTemporary, Commit; RollBack after a commit that got
/// as far as Replaced(). At every instant DXP.RCS is the whole old or the whole new file, or, where
/// Windows loses it half way, missing; then a working file holds it, and none is ever deleted.
/// Failures are thrown as kestrune::Failure with their complete text. A file that is locked for a
/// moment is tried again for half a second.
class RcsFile {
 public:
  /// Looks at the file; refuses one that is read-only, a directory or a link. Changes nothing.
  RcsFile(const std::wstring& path, kestrune::SystemCalls& calls);
  RcsFile(const RcsFile&) = delete;
  RcsFile& operator=(const RcsFile&) = delete;
  /// Deletes the working files that it created and that nobody needs.
  ~RcsFile();

  [[nodiscard]] const kestrune::ExtendedPath& Path() const { return path_; }
  [[nodiscard]] const FileFacts& Facts() const { return facts_; }
  [[nodiscard]] const FileSecurity& Security() const { return security_; }

  /// The bytes of the file and of the temporary one, by the rules of ReadRcsBytes.
  [[nodiscard]] std::string Read() const;
  [[nodiscard]] std::string ReadTemporary() const;

  /// Says by its SHA-256 which text the file must have when it is replaced.
  void SetPlannedText(std::string digest) { planned_digest_ = std::move(digest); }

  /// Writes the new text, whose SHA-256 is `digest`, to the temporary file, and gives that the
  /// exact security of DXP.RCS. Throws when owner, group or DACL cannot be kept.
  void Prepare(std::string_view new_text, std::string digest);
  /// Puts the temporary file in the place of DXP.RCS where nobody changed either since this object
  /// saw them, then restores the exact security. Where the replaced file turns out to have been
  /// changed in the last moment, it goes back as far as possible.
  void Commit();
  /// Whether the file counts as replaced by this object; true where that cannot be found out.
  [[nodiscard]] bool Replaced() const noexcept { return state_ != State::Untouched; }
  /// Throws when owner, group or DACL are not those of the beginning.
  void CheckSecurity() const;
  /// Writes the DACL of the beginning and reads everything back. Throws when owner, group or DACL
  /// differ then.
  void RestoreSecurity();
  /// Puts the text of the saved file back, or the displaced file itself where that is possible.
  void RollBack(const kestrune::ExtendedPath& saved_path);

 private:
  /// The diagram at the head of rcs_file_win32.cpp shows how one becomes another.
  enum class State { Untouched, Unknown, Replaced, Unconfirmed, Superseded, Lost };
  /// What a file holds, as far as this run knows texts.
  enum class Content { Old, New, Foreign, Unreadable, Missing };
  struct Finding {
    Content content = Content::Missing;
    /// The code with which an unreadable or missing file was refused.
    DWORD code = 0;
  };
  /// What a replacement took away, compared with what it was to take away.
  enum class Verdict { Expected, ForeignContent, ForeignSecurity, Unreadable };
  struct Judgement {
    Verdict verdict = Verdict::Expected;
    DWORD code = 0;
  };

  void CreateWithIdentity(const kestrune::ExtendedPath& path, std::string_view bytes,
                          std::wstring_view refusal, bool& created) const;
  void RequireUnchanged() const;
  template <class Requirement>
  DWORD ReplacePatiently(const kestrune::ExtendedPath& replacement,
                         const kestrune::ExtendedPath& displaced, Requirement require);
  [[nodiscard]] State JudgeFailedReplacement() const;
  void TakeBackHalfReplacement();
  void ConfirmReplacement();
  [[nodiscard]] Judgement JudgeDisplaced(const kestrune::ExtendedPath& displaced,
                                         Content expected) const;
  void DropDisplaced(const kestrune::ExtendedPath& displaced) const;
  [[nodiscard]] bool PutDisplacedBack(const kestrune::ExtendedPath& displaced, Content ours) const;
  [[nodiscard]] bool MoveIntoGap(const kestrune::ExtendedPath& source) const;

  [[nodiscard]] bool SettleUnconfirmed();
  void RestoreOver(const kestrune::ExtendedPath& saved_path);
  void FinishRestoration(DWORD code);
  void SettleUndone();
  void FillGap(const kestrune::ExtendedPath& saved_path);
  void WriteRecovery(const kestrune::ExtendedPath& saved_path);
  void RequireNothingKept() const;

  void RequireOwn(std::wstring_view security_refusal, std::wstring_view content_refusal) const;
  [[nodiscard]] bool IsOwn(const FileSecurity& security) const;
  [[nodiscard]] bool HasOwnSecurity() const;
  [[nodiscard]] bool HasSecurityOf(const kestrune::ExtendedPath& displaced) const;
  [[nodiscard]] Finding FindContent(const kestrune::ExtendedPath& path) const;
  [[nodiscard]] FileSecurity ReadSecurity() const;
  void DeleteWorkingFiles() const;

  kestrune::SystemCalls& calls_;
  kestrune::ExtendedPath path_;
  WorkingFiles files_;
  FileFacts facts_;
  FileSecurity security_;
  /// The securities that DXP.RCS can have through this object alone. The exact one is always among
  /// them, and the only one as soon as it is restored.
  std::vector<FileSecurity> own_securities_;
  std::string planned_digest_;
  std::string new_digest_;
  State state_ = State::Untouched;
  /// The recovery file, once this object created it.
  std::optional<kestrune::ExtendedPath> recovery_;
  /// A displaced file that must stay, with the code if it could not be read.
  struct KeptFile {
    kestrune::ExtendedPath path;
    DWORD code = 0;
  };
  std::vector<KeptFile> kept_;
};

}  // namespace altium_registration
