#include "registration/rcs/rcs.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "common/failure/failure.h"
#include "common/text/text.h"
#include "registration/rcs/rcs_lexer.h"

namespace altium_registration {
namespace {

using kestrune::Failure;

struct KnownKind {
  std::string_view keyword;
  NodeKind kind = NodeKind::kTree;
};

/// The host's own kinds, the most frequent first.
constexpr std::array<KnownKind, 6> kKnownKinds = {{{"Link", NodeKind::kLink},
                                                   {"PL", NodeKind::kPl},
                                                   {"Tree", NodeKind::kTree},
                                                   {"Insertion", NodeKind::kInsertion},
                                                   {"Deletion", NodeKind::kDeletion},
                                                   {"Separator", NodeKind::kSeparator}}};

constexpr std::string_view kEnd = "End";

/// Returns the identifier of the record that begins at `start`.
RcsText IdentifierAt(const std::string& text, std::size_t start) {
  RcsLexer lexer(text, start);
  lexer.Skip();
  return lexer.Next().In(text);
}

}  // namespace

bool IsRcsKeyword(std::string_view word) {
  return word == kEnd ||
         std::ranges::find(kKnownKinds, word, &KnownKind::keyword) != kKnownKinds.end();
}

/// Parses one text, which must outlive the parser.
class RcsParser {
 public:
  RcsParser(const std::string& raw, const RcsOptions& options) : raw_(raw), options_(options) {}

  /// Returns the records without the text, which the caller adds. Throws Failure.
  Rcs Run() {
    if (raw_.size() > kMaxRcsBytes) {
      throw Failure{kUnsupportedRcs};
    }
    MakeRoom();
    try {
      ParseRecords();
    } catch (const Failure&) {
      NameWorseFailure();
      throw;
    }
    IndexIdentifiers();
    return std::move(rcs_);
  }

 private:
  /// The number of attribute names of a record up to which comparing all pairs is faster than an
  /// index.
  static constexpr std::size_t kFewNames = 13;

  /// Holds a record whose "End" was not read yet.
  struct OpenRecord {
    std::uint32_t place = 0;
    bool may_have_children = false;
    /// The index of its first attribute's name in `names_`.
    std::uint32_t first_name = 0;
  };

  /// Reserves memory for a typical file, so that its lists need not grow.
  void MakeRoom() {
    constexpr std::size_t kUsualRecordBytes = 80;
    rcs_.nodes_.reserve(raw_.size() / kUsualRecordBytes);
    rcs_.identifiers_.ReserveForAppend(options_.strict ? raw_.size() / kUsualRecordBytes : 0);
  }

  /// Throws the failure that has precedence over the one that ended the parsing, if any: first a
  /// text that is not 8-bit, then an unclosed quote, since these make every other error doubtful,
  /// and then the first repetition, of an identifier or of an attribute name in an open record. All
  /// repetitions that are found here precede the position of the failure.
  void NameWorseFailure() {
    if (raw_.find('\0') != std::string_view::npos) {
      throw Failure{kUnsupportedRcs};
    }
    for (RcsLexer lexer(raw_); !lexer.AtEnd();) {
      lexer.Next();
    }
    std::uint32_t first_repetition = kNoItem;
    std::size_t end = names_.size();
    for (std::uint32_t depth = depth_; depth != 0; --depth) {
      const std::size_t begin = open_[depth - 1].first_name;
      first_repetition =
          std::min(first_repetition, RepeatedName(std::span(names_).subspan(begin, end - begin)));
      end = begin;
    }
    IndexIdentifiers(first_repetition);
    if (first_repetition != kNoItem) {
      throw Failure{L"Invalid RCS attribute."};
    }
  }

  void ParseRecords() {
    RcsLexer lexer(raw_);
    while (!lexer.AtEnd()) {
      const RcsSpan token = lexer.Next();
      if (depth_ == 0) {
        Open(token, lexer);
        continue;
      }
      const OpenRecord& record = open_[depth_ - 1];
      if (token.IsBare(kEnd, raw_)) {
        Close(record, token);
        --depth_;
      } else if (lexer.TakeEquals()) {
        AddAttribute(record, token, lexer);
      } else if (record.may_have_children) {
        Open(token, lexer);
      } else {
        throw Failure{L"Unexpected RCS child."};
      }
    }
    if (depth_ != 0) {
      throw Failure{L"Unterminated RCS record."};
    }
  }

  void Open(RcsSpan keyword, RcsLexer& lexer) {
    if (depth_ > kMaxRcsDepth || lexer.AtEnd()) {
      throw Failure{L"Malformed RCS nesting."};
    }
    const NodeKind kind = KindOf(keyword);
    const std::uint32_t place = AddNode(keyword, kind, lexer);
    open_[depth_++] = {place, kind == NodeKind::kTree || kind == NodeKind::kInsertion,
                       static_cast<std::uint32_t>(names_.size())};
  }

  NodeKind KindOf(RcsSpan keyword) const {
    // None of the six contains a quote, so the text as written is compared.
    const std::string_view written = keyword.Written(raw_);
    for (const KnownKind& known : kKnownKinds) {
      if (written == known.keyword) {
        return known.kind;
      }
    }
    for (const std::string& name : options_.extra_record_kinds) {
      if (Text(keyword) == name) {
        return NodeKind::kExtra;
      }
    }
    throw Failure{L"Unknown RCS record: " + kestrune::WidenBytes(Text(keyword).ToString())};
  }

  std::uint32_t AddNode(RcsSpan keyword, NodeKind kind, RcsLexer& lexer) {
    const auto place = static_cast<std::uint32_t>(rcs_.nodes_.size());
    const RcsText text = Text(lexer.Next());
    if (text.empty() || text == kEnd) {
      throw Failure{L"Duplicate/invalid RCS identifier."};
    }
    if (options_.strict) {
      rcs_.identifiers_.Append(text);
    }
    Node& node = rcs_.nodes_.emplace_back();
    node.kind = kind;
    node.start = keyword.Start();
    node.depth = static_cast<std::uint8_t>(depth_);
    node.body = lexer.Position();
    return place;
  }

  /// Throws Failure when an identifier is repeated among the records that begin before `limit`.
  void IndexIdentifiers(std::uint32_t limit = kNoItem) {
    if (!options_.strict) {
      return;
    }
    const std::uint32_t repeated = rcs_.identifiers_.Build(
        [this](std::uint32_t place) { return IdentifierAt(raw_, rcs_.nodes_[place].start); });
    if (repeated != kNoItem && rcs_.nodes_[repeated].start < limit) {
      throw Failure{L"Duplicate/invalid RCS identifier."};
    }
  }

  void AddAttribute(const OpenRecord& record, RcsSpan name, RcsLexer& lexer) {
    if (lexer.AtEnd()) {
      throw Failure{L"Invalid RCS attribute."};
    }
    lexer.Skip();
    if (!IsNewName(record, name)) {
      throw Failure{L"Invalid RCS attribute."};
    }
    names_.push_back(name);
  }

  /// Returns whether the name is new in the innermost record, as far as it can be checked now: a
  /// few names are compared one by one, further ones when the record ends.
  bool IsNewName(const OpenRecord& record, RcsSpan name) const {
    if (names_.size() - record.first_name >= kFewNames) {
      return true;
    }
    const RcsText text = Text(name);
    for (std::size_t place = record.first_name; place < names_.size(); ++place) {
      if (Text(names_[place]) == text) {
        return false;
      }
    }
    return true;
  }

  /// Returns the offset of the first name of a record that repeats an earlier one of it; kNoItem
  /// when there is none, as in a record of few names, all of which IsNewName has compared.
  std::uint32_t RepeatedName(std::span<const RcsSpan> names) const {
    return names.size() <= kFewNames ? kNoItem : RepeatedAmongMany(names);
  }

  std::uint32_t RepeatedAmongMany(std::span<const RcsSpan> names) const {
    RcsIndex index;
    index.ReserveForAppend(names.size());
    for (const RcsSpan name : names) {
      index.Append(Text(name));
    }
    const std::uint32_t repeated =
        index.Build([&](std::uint32_t number) { return Text(names[number]); });
    return repeated == kNoItem ? kNoItem : names[repeated].Start();
  }

  void Close(const OpenRecord& open, RcsSpan end) {
    if (RepeatedName(std::span(names_).subspan(open.first_name)) != kNoItem) {
      throw Failure{L"Invalid RCS attribute."};
    }
    Node& node = rcs_.nodes_[open.place];
    node.end = end.End();
    node.subtree_end = static_cast<std::uint32_t>(rcs_.nodes_.size());
    const std::size_t attributes = names_.size() - open.first_name;
    node.attributes =
        static_cast<std::uint16_t>(std::min<std::size_t>(attributes, kManyAttributes));
    names_.resize(open.first_name);
  }

  RcsText Text(RcsSpan token) const { return token.In(raw_); }

  const std::string& raw_;
  const RcsOptions& options_;
  Rcs rcs_;
  /// Attribute names of the open records, those of the innermost record last. They wait here for
  /// the record's end because attributes may follow children.
  std::vector<RcsSpan> names_;
  /// The records that are open at the current position, the outermost first; `depth_` of them are
  /// in use.
  std::array<OpenRecord, kMaxRcsDepth + 1> open_;
  std::uint32_t depth_ = 0;
};

bool Rcs::Parse(std::string&& text, const RcsOptions& options, Rcs& rcs, std::wstring& error) {
  try {
    rcs = RcsParser(text, options).Run();
    rcs.options_ = options;
    rcs.text_ = std::move(text);
    return true;
  } catch (const Failure& failure) {
    error = failure.text;
    return false;
  }
}

std::string Rcs::TakeText() && {
  // This frees the memory of the records too.
  Rcs taken = std::move(*this);
  return std::move(taken.text_);
}

RcsText Rcs::Identifier(const Node& node) const {
  return IdentifierAt(text_, node.start);
}

RcsText Rcs::Attribute(const Node& node, std::string_view name) const {
  RcsLexer lexer(text_, node.body);
  const Node* child = &node + 1;
  std::uint32_t others = 0;
  while (lexer.Position() != node.EndKeyword()) {
    if (child != nodes_.data() + node.subtree_end && lexer.Position() == child->start) {
      lexer.GoTo(child->end);
      child = nodes_.data() + child->subtree_end;
      continue;
    }
    const bool found = lexer.Next().In(text_) == name;
    lexer.TakeEquals();
    if (found) {
      return lexer.Next().In(text_);
    }
    ++others;
    if (others == node.attributes && others != kManyAttributes) {
      return {};  // The last value, which may be long, need not be read.
    }
    lexer.Skip();
  }
  return {};
}

std::uint32_t Rcs::FindIdentifier(std::string_view identifier) const {
  return identifiers_.Find({identifier, false},
                           [this](std::uint32_t place) { return Identifier(nodes_[place]); });
}

}  // namespace altium_registration
