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

/// How a customization file is read.
///
/// RcsLexer cuts the bytes into tokens, one after the other: bare words, quoted texts and equals
/// signs. RcsParser (rcs.cpp) takes them as they come, in one pass and without recursion: a list of
/// the open records, at most 33, says where the next token belongs. Nothing is copied. A record, a
/// name and a value are offsets into the file's text, and an edit is a splice into it, so that what
/// is not touched keeps every byte.
///
/// Nodes are in one list in file order, each before its children. The nodes below one are therefore
/// those that follow it up to its `subtree_end`, and a question about all of them is one pass over
/// the list. The attributes are in a second list, those of one node together.
///
/// Repeated names are found in two ways. An identifier, which must be new in the whole file, is
/// looked up in an RcsIndex, a hash table. So are the attributes of a record with more than a dozen
/// of them; the few that other records have are compared one by one.
///
/// Every text is read once, and what is made from it is handed on: EditRcs and ValidateRcs take a
/// parsed file. All of it takes time in proportion to the size of the file, whatever is in it: no
/// text is compared or copied more often than it occurs, and the hash has a seed that no author of
/// a file can know.
namespace altium_registration {

/// The deepest record: the top level counts as 0.
inline constexpr std::uint32_t kMaxRcsDepth = 32;

/// Returns whether this word has a meaning of its own where a record begins or ends: the host's own
/// kinds of record, and "End". Words differ by case.
bool IsRcsKeyword(std::string_view word);

/// The kinds of record. kExtra is every kind of RcsOptions::extra_record_kinds.
enum class NodeKind : std::uint8_t { kTree, kPl, kLink, kInsertion, kDeletion, kSeparator, kExtra };

/// By which rules a text is parsed.
struct RcsOptions {
  /// Whether an identifier that occurs twice, at whatever depth, is an error.
  bool strict = true;
  /// Further keywords that begin a record. Such a record has an identifier and attributes, no
  /// children, and no meaning here.
  std::vector<std::string> extra_record_kinds = {};
};

/// One record of a customization file.
struct Node {
  NodeKind kind = NodeKind::kTree;
  /// Offset of the keyword's first byte in the file.
  std::uint32_t start = 0;
  /// Offset one past the closing "End".
  std::uint32_t end = 0;
  /// The place of the record around it, or kNoItem at the top level.
  std::uint32_t parent = kNoItem;
  /// One past the place of the last node below it.
  std::uint32_t subtree_end = 0;
  RcsSpan identifier;
  std::uint32_t first_attribute = 0;
  std::uint32_t attribute_count = 0;

  /// Offset of the closing "End": the place for a new last child.
  std::uint32_t EndKeyword() const { return end - 3; }
};

/// A parsed customization file: its bytes and the records in them. The texts that it returns point
/// into it: they must not be used after it was moved.
class Rcs {
 public:
  Rcs() = default;
  Rcs(Rcs&&) = default;
  Rcs& operator=(Rcs&&) = default;

  /// Parses a file's bytes. Sets `rcs` and takes `text` over only on success.
  ///
  /// Errors: "Unsupported RCS size/encoding." (above kMaxRcsBytes, or a NUL byte as in UTF-16
  /// files), "Unclosed RCS quote.", "Unknown RCS record: " and the keyword, "Malformed RCS
  /// nesting.", "Duplicate/invalid RCS identifier.", "Unterminated RCS record.", "Unexpected RCS
  /// child.", "Invalid RCS attribute.". An unclosed quote anywhere comes first, then the first
  /// error in file order. The keyword is widened byte by byte and shown whole, as long as it is.
  static bool Parse(std::string&& text, const RcsOptions& options, Rcs& rcs, std::wstring& error);

  const std::string& text() const { return text_; }
  /// Gives the bytes away; the records are lost.
  std::string TakeText() &&;
  const RcsOptions& options() const { return options_; }
  const std::vector<Node>& nodes() const { return nodes_; }

  RcsText Identifier(const Node& node) const { return node.identifier.In(text_); }
  /// The value of an attribute; the empty text when the record lacks it.
  RcsText Attribute(const Node& node, std::string_view name) const;
  /// Has the memory fetch the beginning of a record's text, which will be read soon, where the
  /// compiler can say so. Changes nothing but time.
  void PrefetchText([[maybe_unused]] const Node& node) const {
#if defined(__GNUC__)
    constexpr std::size_t kCacheLine = 64;
    __builtin_prefetch(text_.data() + node.start);
    __builtin_prefetch(text_.data() + std::min(node.start + kCacheLine, text_.size()));
#endif
  }
  /// The place of the record with this identifier, or kNoItem. Strictly parsed files only.
  std::uint32_t FindIdentifier(std::string_view identifier) const;

 private:
  friend class RcsParser;

  struct NamedValue {
    RcsSpan name;
    RcsSpan value;
  };

  std::string text_;
  RcsOptions options_;
  std::vector<Node> nodes_;
  std::vector<NamedValue> attributes_;
  RcsIndex identifiers_;
};

}  // namespace altium_registration
