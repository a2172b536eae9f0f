#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/rcs_index.h"
#include "registration/rcs/rcs_text.h"
#include "registration/rcs_size.h"

/// Parses customization files.
///
/// RcsLexer splits the bytes into tokens: bare words, quoted texts and equals signs. RcsParser
/// (rcs.cpp) consumes them in one pass and without recursion, with a list of at most 33 open
/// records. Nothing is copied. An edit is a splice into the file's text, so that all other bytes
/// are preserved.
///
/// A Node stores only the kind, the depth, the number of attributes and four offsets of a record,
/// 20 bytes. Identifiers and attributes are read from the text again when they are needed, which is
/// rare: storing them would cost more time, because memory that is written for the first time is
/// slow, above all in the 32-bit program.
///
/// Nodes are in one list in file order, each before its children. The descendants of a node
/// therefore follow it up to its `subtree_end` and can be visited in one pass.
///
/// Repeated names are found in two ways. Identifiers, which must be unique in the whole file, are
/// looked up in an RcsIndex, a hash table that is filled after the last record. The attribute names
/// of a record are compared one by one, up to thirteen; those of a record with more are put into
/// another RcsIndex at its end. Filling a table with all texts at once is several times faster than
/// filling it while parsing. A repetition that is found late is still reported before an error that
/// follows it in the file.
///
/// Every text is parsed once; EditRcs and ValidateRcs take a parsed file. The time is proportional
/// to the size of the file for any content: no text is compared or copied more often than it
/// occurs, and the hash has a random seed, so that a file cannot be crafted to collide.
namespace altium_registration {

/// The depth of the deepest record; the top level is 0.
inline constexpr std::uint32_t kMaxRcsDepth = 32;

/// Returns whether the word is a keyword: one of the host's own record kinds, or "End".
/// Case-sensitive.
bool IsRcsKeyword(std::string_view word);

/// Lists the record kinds. kExtra is any kind of RcsOptions::extra_record_kinds.
enum class NodeKind : std::uint8_t { kTree, kPl, kLink, kInsertion, kDeletion, kSeparator, kExtra };

/// Holds the rules for parsing a text.
struct RcsOptions {
  /// Whether an identifier that occurs twice, at any depth, is an error.
  bool strict = true;
  /// Keywords of extra record kinds. Such a record has an identifier and attributes but no
  /// children, and is not interpreted.
  std::vector<std::string> extra_record_kinds = {};
};

/// The largest number in Node::attributes.
inline constexpr std::uint16_t kManyAttributes = 0xFFFF;

/// Holds one record of a customization file.
struct Node {
  NodeKind kind = NodeKind::kTree;
  /// The number of records that contain it; 0 at the top level.
  std::uint8_t depth = 0;
  /// The number of its attributes; kManyAttributes for that many or more.
  std::uint16_t attributes = 0;
  /// Offset of the keyword's first byte in the file.
  std::uint32_t start = 0;
  /// Offset one past the closing "End".
  std::uint32_t end = 0;
  /// One past the index of its last descendant.
  std::uint32_t subtree_end = 0;
  /// Offset of the token after the identifier.
  std::uint32_t body = 0;

  /// Returns the offset of the closing "End", where a new last child is inserted.
  std::uint32_t EndKeyword() const { return end - 3; }
};

/// Holds a parsed customization file: its bytes and its records. An RcsText that it returns points
/// into it and is invalid after a move.
class Rcs {
 public:
  Rcs() = default;
  Rcs(Rcs&&) = default;
  Rcs& operator=(Rcs&&) = default;

  /// Parses a file's bytes. Sets `rcs` and moves from `text` only on success.
  ///
  /// Errors: "Unsupported RCS size/encoding." (above kMaxRcsBytes, or with a null byte as in UTF-16
  /// files), "Unclosed RCS quote.", "Unknown RCS record: " and the keyword, "Malformed RCS
  /// nesting.", "Duplicate/invalid RCS identifier.", "Unterminated RCS record.", "Unexpected RCS
  /// child.", "Invalid RCS attribute.". An unclosed quote anywhere has precedence, then the first
  /// error in file order. The keyword is widened byte by byte and not truncated.
  static bool Parse(std::string&& text, const RcsOptions& options, Rcs& rcs, std::wstring& error);

  const std::string& text() const { return text_; }
  /// Returns the bytes and discards the records.
  std::string TakeText() &&;
  const RcsOptions& options() const { return options_; }
  const std::vector<Node>& nodes() const { return nodes_; }

  /// Returns the identifier of one of `nodes()`.
  RcsText Identifier(const Node& node) const;
  /// Returns the value of an attribute of one of `nodes()`; an empty text when the record lacks it.
  RcsText Attribute(const Node& node, std::string_view name) const;
  /// Prefetches the beginning of a record's attributes into the cache, if the compiler supports it.
  void PrefetchText([[maybe_unused]] const Node& node) const {
#if defined(__GNUC__)
    constexpr std::size_t kCacheLine = 64;
    __builtin_prefetch(text_.data() + node.body);
    __builtin_prefetch(text_.data() + std::min(node.body + kCacheLine, text_.size()));
#endif
  }
  /// Returns the index of the record with this identifier, or kNoItem. Requires a strictly parsed
  /// file.
  std::uint32_t FindIdentifier(std::string_view identifier) const;

 private:
  friend class RcsParser;

  std::string text_;
  RcsOptions options_;
  std::vector<Node> nodes_;
  RcsIndex identifiers_;
};

}  // namespace altium_registration
