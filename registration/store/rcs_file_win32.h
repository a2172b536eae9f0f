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

/// Holds attributes, last-write time (100 nanoseconds since 1601, UTC) and size in bytes from the
/// directory entry.
struct FileFacts {
  std::uint32_t attributes = 0;
  std::uint64_t write_time = 0;
  std::uint64_t size = 0;
};

/// Replaces DXP.RCS of one instance, and manages the working files beside it.
///
/// Call SetPlannedText, Prepare, ReadReplacement and Commit in this order, and RollBack after a
/// failed commit for which Replaced() is true. At every instant DXP.RCS is the complete old or the
/// complete new file, unless Windows stops half way and leaves it missing. In that case its content
/// is in a working file, and none is deleted. Failures are thrown as kestrune::Failure with their
/// complete text. A sharing violation is retried for half a second.
class RcsFile {
 public:
  /// Reads the file's stat. Throws for one that is read-only, a directory or a link. Changes
  /// nothing.
  RcsFile(const std::wstring& path, kestrune::SystemCalls& calls);
  RcsFile(const RcsFile&) = delete;
  RcsFile& operator=(const RcsFile&) = delete;
  /// Deletes the working files that this object created and that are no longer needed.
  ~RcsFile();

  [[nodiscard]] const kestrune::ExtendedPath& Path() const { return path_; }
  [[nodiscard]] const FileFacts& Facts() const { return facts_; }
  [[nodiscard]] const FileSecurity& Security() const { return security_; }

  /// Return the bytes of DXP.RCS and of the replacement file, by the rules of ReadRcsBytes.
  [[nodiscard]] std::string Read() const;
  [[nodiscard]] std::string ReadReplacement() const;

  /// Sets the SHA-256 of the text that DXP.RCS must have when it is replaced.
  void SetPlannedText(std::string digest) { planned_digest_ = std::move(digest); }

  /// Writes the new text, whose SHA-256 is `digest`, to the replacement file, with the exact
  /// security of DXP.RCS. Throws when owner, group or DACL cannot be kept.
  void Prepare(std::string_view new_text, std::string digest);
  /// Replaces DXP.RCS with the replacement file if both are unchanged since this object read them,
  /// then restores the exact security. If another program has changed the displaced file since that
  /// check, moves it back if possible.
  void Commit();
  /// Returns whether this object has replaced the file; true when that cannot be determined.
  [[nodiscard]] bool Replaced() const noexcept { return state_ != State::Untouched; }
  /// Throws when owner, group or DACL differ from the original ones.
  void CheckSecurity() const;
  /// Restores DXP.RCS: from the displaced file if possible, else from the saved file.
  void RollBack(const kestrune::ExtendedPath& saved_path);

 private:
  /// Lists the states of DXP.RCS; the head of rcs_file_win32.cpp has the diagram of their
  /// transitions.
  enum class State { Untouched, Unknown, Replaced, Unconfirmed, Superseded, Lost };
  /// Lists the contents of a file that this run distinguishes.
  enum class Content { Old, New, Foreign, Unreadable, Missing };
  struct Finding {
    Content content = Content::Missing;
    /// The error code for an unreadable or missing file.
    DWORD code = 0;
  };
  /// Lists the results of comparing a displaced file with the expected one.
  enum class Match { Expected, ForeignContent, ForeignSecurity, Unreadable };
  struct Comparison {
    Match match = Match::Expected;
    DWORD code = 0;
  };

  void CreateWithIdentity(const kestrune::ExtendedPath& path, std::string_view bytes,
                          std::wstring_view refusal, bool& created) const;
  void RequireUnchanged() const;
  template <class Requirement>
  DWORD ReplaceWithRetries(const kestrune::ExtendedPath& replacement,
                           const kestrune::ExtendedPath& displaced, Requirement require);
  [[nodiscard]] State StateAfterFailure() const;
  void UndoHalfReplacement();
  void ConfirmReplacement();
  [[nodiscard]] Comparison CompareDisplaced(const kestrune::ExtendedPath& displaced,
                                            Content expected) const;
  void DeleteDisplaced(const kestrune::ExtendedPath& displaced) const;
  [[nodiscard]] bool MoveDisplacedBack(const kestrune::ExtendedPath& displaced, Content ours) const;
  [[nodiscard]] bool MoveUnlessExists(const kestrune::ExtendedPath& source) const;

  /// Writes the original DACL and reads the security back. Throws when owner, group or DACL then
  /// differ.
  void RestoreSecurity();
  [[nodiscard]] bool RestoreUnconfirmed();
  void RestoreOver(const kestrune::ExtendedPath& saved_path);
  void FinishRestoration(DWORD code);
  void CheckUndone();
  void RestoreMissing(const kestrune::ExtendedPath& saved_path);
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
  /// The securities that DXP.RCS can have without another program's change. Always contains the
  /// original one, and only that once it is restored.
  std::vector<FileSecurity> own_securities_;
  std::string planned_digest_;
  std::string new_digest_;
  State state_ = State::Untouched;
  /// The recovery file, if this object has created it.
  std::optional<kestrune::ExtendedPath> recovery_;
  /// Holds a displaced file that must be kept, with the error code if it could not be read.
  struct KeptFile {
    kestrune::ExtendedPath path;
    DWORD code = 0;
  };
  std::vector<KeptFile> kept_;
};

}  // namespace altium_registration
