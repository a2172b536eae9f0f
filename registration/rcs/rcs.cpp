#include "registration/rcs/rcs.h"

#include <algorithm>
#include <array>
#include <optional>
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

}  // namespace

bool IsRcsKeyword(std::string_view word) {
  return word == kEnd ||
         std::ranges::find(kKnownKinds, word, &KnownKind::keyword) != kKnownKinds.end();
}

/// Parses one text, which must outlive the parser.
class RcsParser {
 public:
  RcsParser(std::string_view raw, const RcsOptions& options) : raw_(raw), options_(options) {}

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
  using Attributes = std::vector<Rcs::NamedValue>;

  /// Holds a record whose "End" was not read yet.
  struct OpenRecord {
    std::uint32_t place = 0;
    bool may_have_children = false;
    /// The list that collects its attributes. Those of a record without children are contiguous and
    /// go directly into the file's list.
    Attributes* attributes = nullptr;
    /// The index of its first attribute there.
    std::size_t first = 0;
    /// The index of the names, once there are many.
    std::optional<RcsIndex> names = std::nullopt;
  };

  /// Reserves memory for a typical file, so that its lists need not grow.
  void MakeRoom() {
    constexpr std::size_t kUsualRecordBytes = 80;
    constexpr std::size_t kUsualAttributeBytes = 32;
    rcs_.nodes_.reserve(raw_.size() / kUsualRecordBytes);
    rcs_.attributes_.reserve(raw_.size() / kUsualAttributeBytes);
    rcs_.identifiers_.ReserveForAppend(options_.strict ? raw_.size() / kUsualRecordBytes : 0);
  }

  /// Throws the failure that has precedence over the one that ended the parsing, if any: first a
  /// text that is not 8-bit, then an unclosed quote, since these make every other error doubtful,
  /// and then an identifier that is repeated before the position of the failure.
  void NameWorseFailure() {
    if (raw_.find('\0') != std::string_view::npos) {
      throw Failure{kUnsupportedRcs};
    }
    for (RcsLexer lexer(raw_); !lexer.AtEnd();) {
      lexer.Next();
    }
    IndexIdentifiers();
  }

  void ParseRecords() {
    RcsLexer lexer(raw_);
    while (!lexer.AtEnd()) {
      const RcsSpan token = lexer.Next();
      if (depth_ == 0) {
        Open(token, lexer);
        continue;
      }
      OpenRecord& record = open_[depth_ - 1];
      if (ClosesRecord(token)) {
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
    const std::uint32_t place = AddNode(keyword, kind, lexer.Next());
    const bool may_have_children = kind == NodeKind::kTree || kind == NodeKind::kInsertion;
    Attributes& attributes = may_have_children ? pending_ : rcs_.attributes_;
    open_[depth_++] = {place, may_have_children, &attributes, attributes.size()};
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

  std::uint32_t AddNode(RcsSpan keyword, NodeKind kind, RcsSpan identifier) {
    const auto place = static_cast<std::uint32_t>(rcs_.nodes_.size());
    const RcsText text = Text(identifier);
    if (text.empty() || text == kEnd) {
      throw Failure{L"Duplicate/invalid RCS identifier."};
    }
    if (options_.strict) {
      rcs_.identifiers_.Append(text);
    }
    Node& node = rcs_.nodes_.emplace_back();
    node.kind = kind;
    node.start = keyword.Start();
    node.parent = depth_ == 0 ? kNoItem : open_[depth_ - 1].place;
    node.identifier = identifier;
    return place;
  }

  /// Throws Failure when an identifier is repeated among the records so far, all of which precede a
  /// parse error found meanwhile.
  void IndexIdentifiers() {
    const auto identifier_of = [this](std::uint32_t place) {
      return Text(rcs_.nodes_[place].identifier);
    };
    if (options_.strict && !rcs_.identifiers_.Build(identifier_of)) {
      throw Failure{L"Duplicate/invalid RCS identifier."};
    }
  }

  void AddAttribute(OpenRecord& record, RcsSpan name, RcsLexer& lexer) {
    if (lexer.AtEnd()) {
      throw Failure{L"Invalid RCS attribute."};
    }
    const RcsSpan value = lexer.Next();
    if (!ClaimName(record, Text(name))) {
      throw Failure{L"Invalid RCS attribute."};
    }
    record.attributes->push_back({name, value});
  }

  /// Returns whether the name is new in the innermost record. A few names are compared one by one;
  /// many are indexed.
  bool ClaimName(OpenRecord& record, const RcsText& name) const {
    constexpr std::size_t kFew = 12;
    const Attributes& attributes = *record.attributes;
    if (attributes.size() - record.first > kFew) {
      return ClaimIndexedName(record, name);
    }
    for (std::size_t place = record.first; place < attributes.size(); ++place) {
      if (Text(attributes[place].name) == name) {
        return false;
      }
    }
    return true;
  }

  bool ClaimIndexedName(OpenRecord& record, const RcsText& name) const {
    const Attributes& attributes = *record.attributes;
    const auto name_of = [&](std::uint32_t number) {
      return Text(attributes[record.first + number].name);
    };
    if (!record.names) {
      record.names.emplace();
      for (std::size_t place = record.first; place < attributes.size(); ++place) {
        record.names->Add(Text(attributes[place].name), name_of);
      }
    }
    return record.names->Add(name, name_of);
  }

  void Close(const OpenRecord& open, RcsSpan end) {
    Node& node = rcs_.nodes_[open.place];
    node.end = end.End();
    node.subtree_end = static_cast<std::uint32_t>(rcs_.nodes_.size());
    node.first_attribute = static_cast<std::uint32_t>(open.first);
    node.attribute_count = static_cast<std::uint32_t>(open.attributes->size() - open.first);
    if (open.may_have_children) {
      TakePending(node);
    }
  }

  /// Moves the pending attributes of the innermost record with children into the file's list.
  void TakePending(Node& node) {
    Attributes& attributes = rcs_.attributes_;
    const auto own = pending_.begin() + static_cast<std::ptrdiff_t>(node.first_attribute);
    node.first_attribute = static_cast<std::uint32_t>(attributes.size());
    attributes.insert(attributes.end(), own, pending_.end());
    pending_.erase(own, pending_.end());
  }

  RcsText Text(RcsSpan token) const { return token.In(raw_); }

  bool ClosesRecord(RcsSpan token) const { return !token.quoted() && token.Written(raw_) == kEnd; }

  std::string_view raw_;
  const RcsOptions& options_;
  Rcs rcs_;
  /// Attributes of the open records that may have children, those of the innermost record last.
  /// They wait here because attributes may follow children, but are contiguous in the file's list.
  Attributes pending_;
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

RcsText Rcs::Attribute(const Node& node, std::string_view name) const {
  for (std::size_t i = 0; i < node.attribute_count; ++i) {
    const NamedValue& attribute = attributes_[node.first_attribute + i];
    if (attribute.name.In(text_) == name) {
      return attribute.value.In(text_);
    }
  }
  return {};
}

std::uint32_t Rcs::FindIdentifier(std::string_view identifier) const {
  return identifiers_.Find({identifier, false},
                           [this](std::uint32_t place) { return Identifier(nodes_[place]); });
}

}  // namespace altium_registration
