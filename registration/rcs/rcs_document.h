#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/prefetch.h"
#include "registration/rcs/rcs_index.h"
#include "registration/rcs/rcs_text.h"

namespace altium_registration {

/// The largest customization file that is read or written (8 MiB). Real ones have some 20 KiB; the
/// limit keeps a foreign file from filling the memory of a 32-bit process.
inline constexpr std::size_t kMaxRcsBytes = 8'388'608;

/// The deepest record: the top level counts as 0.
inline constexpr std::uint32_t kMaxRcsDepth = 32;

/// Record kinds named by their keywords.
using RcsKinds = std::span<const std::string_view>;

/// Whether this word has a meaning of its own where a record begins or ends: the host's own kinds,
/// and "End". Words differ by case.
bool IsRcsKeyword(std::string_view word);

/// The kinds of record. kCarried stands for every kind that the caller let through by name.
enum class RcsKind : std::uint8_t {
  kTree,
  kPl,
  kLink,
  kInsertion,
  kDeletion,
  kSeparator,
  kCarried
};

struct RcsParseOptions {
  /// Whether an identifier that occurs twice, at whatever depth, is an error.
  bool strict = true;
  /// Further keywords that begin a record. Such a record has an identifier and attributes, no
  /// children, and no meaning here. The keywords must outlive the call only.
  RcsKinds carried_kinds = {};
};

/// One record. Records lie in file order, parents before their children, so a record's
/// descendants are the ones from its own place + 1 up to `subtree_end`.
struct RcsRecord {
  RcsKind kind = RcsKind::kTree;
  /// Offset of the keyword's first byte in the file.
  std::uint32_t start = 0;
  /// Offset one past the closing "End".
  std::uint32_t end = 0;
  /// The record around it, or kNoRcsItem at the top level.
  std::uint32_t parent = kNoRcsItem;
  std::uint32_t subtree_end = 0;
  RcsSpan identifier;
  std::uint32_t first_attribute = 0;
  std::uint32_t attribute_count = 0;

  /// Offset of the closing "End": the place for a new last child.
  std::uint32_t EndKeyword() const { return end - 3; }
};

/// A parsed customization file. Nothing is copied out of the file's text: it must outlive the
/// document, and all edits are splices into it.
class RcsDocument {
 public:
  /// Parses the file's bytes. `document` is set only on success.
  ///
  /// Errors: "Unsupported RCS size/encoding." (above kMaxRcsBytes, or a NUL byte as in UTF-16
  /// files), "Unclosed RCS quote.", "Invalid RCS token.", "Unknown RCS record: " and the keyword,
  /// "Malformed RCS nesting.", "Duplicate/invalid RCS identifier.", "Unterminated RCS record.",
  /// "Unexpected RCS child.", "Invalid RCS attribute.". An unclosed quote anywhere comes first,
  /// then the first error in file order. Bytes of the file are widened one by one in an error.
  static bool Parse(std::string_view raw, const RcsParseOptions& options, RcsDocument& document,
                    std::wstring& error);

  std::string_view raw() const { return raw_; }
  const std::vector<RcsRecord>& records() const { return records_; }

  RcsText Identifier(const RcsRecord& record) const { return record.identifier.In(raw_); }
  /// The value of an attribute; the empty text when the record lacks it.
  RcsText Attribute(const RcsRecord& record, std::string_view name) const;
  /// Has the memory fetch the beginning of a record's text, which will be read soon.
  void PrefetchText(const RcsRecord& record) const {
    constexpr std::size_t kCacheLine = 64;
    Prefetch(raw_.data() + record.start);
    Prefetch(raw_.data() + std::min(record.start + kCacheLine, raw_.size()));
  }
  /// The place of the record with this identifier, or kNoRcsItem. Strictly parsed documents only.
  std::uint32_t FindIdentifier(const RcsText& identifier) const;

 private:
  friend class RcsParser;

  struct NamedValue {
    RcsSpan name;
    RcsSpan value;
  };

  std::string_view raw_;
  std::vector<RcsRecord> records_;
  std::vector<NamedValue> attributes_;
  RcsIndex identifiers_;
};

}  // namespace altium_registration
