#include "registration/rcs/rcs_document.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include "common/failure.h"
#include "common/text.h"
#include "registration/rcs/rcs_lexer.h"

namespace altium_registration {
namespace {

using kestrune::Failure;

std::string_view AtMostTheLimit(std::string_view raw) {
  if (raw.size() > kMaxRcsBytes) {
    throw Failure{kUnsupportedRcs};
  }
  return raw;
}

struct KnownKind {
  std::string_view keyword;
  RcsKind kind = RcsKind::kTree;
};

/// The host's own kinds, the most frequent first.
constexpr std::array<KnownKind, 6> kKnownKinds = {{{"Link", RcsKind::kLink},
                                                   {"PL", RcsKind::kPl},
                                                   {"Tree", RcsKind::kTree},
                                                   {"Insertion", RcsKind::kInsertion},
                                                   {"Deletion", RcsKind::kDeletion},
                                                   {"Separator", RcsKind::kSeparator}}};

constexpr std::string_view kEnd = "End";

}  // namespace

bool IsRcsKeyword(std::string_view word) {
  return word == kEnd ||
         std::ranges::find(kKnownKinds, word, &KnownKind::keyword) != kKnownKinds.end();
}

class RcsParser {
 public:
  RcsParser(std::string_view raw, const RcsParseOptions& options) : options_(options) {
    document_.raw_ = AtMostTheLimit(raw);
    hashes_.reserve(options.strict ? raw.size() / kUsualRecordBytes : 0);
    document_.records_.reserve(raw.size() / kUsualRecordBytes);
    document_.attributes_.reserve(raw.size() / kUsualAttributeBytes);
  }

  RcsDocument Run() {
    try {
      ParseRecords();
    } catch (const Failure&) {
      // A text that is no 8-bit text, and a quote that is never closed, make every other finding
      // doubtful, so they are named first.
      if (document_.raw_.find('\0') != std::string_view::npos) {
        throw Failure{kUnsupportedRcs};
      }
      for (RcsLexer lexer(document_.raw_); !lexer.AtEnd();) {
        lexer.Next();
      }
      IndexIdentifiers();
      throw;
    }
    IndexIdentifiers();
    return std::move(document_);
  }

 private:
  using Attributes = std::vector<RcsDocument::NamedValue>;

  /// A record whose end is not read yet.
  struct OpenRecord {
    std::uint32_t place = 0;
    bool may_have_children = false;
    /// Where its attributes go: those of a record without children straight into the document, as
    /// they stand together there by themselves.
    Attributes* attributes = nullptr;
    /// The place of its first attribute in that list.
    std::size_t first = 0;
    /// One bit for each name so far, shared with other names.
    std::uint64_t seen = 0;
    /// The names, once there are many.
    std::optional<RcsIndex> names = std::nullopt;
  };

  void ParseRecords() {
    RcsLexer lexer(document_.raw_);
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
    const RcsKind kind = KindOf(keyword);
    const std::uint32_t place = AddRecord(keyword, kind, lexer.Next());
    const bool may_have_children = kind == RcsKind::kTree || kind == RcsKind::kInsertion;
    Attributes& attributes = may_have_children ? pending_ : document_.attributes_;
    open_[depth_++] = {place, may_have_children, &attributes, attributes.size()};
  }

  RcsKind KindOf(RcsSpan keyword) const {
    // None of the six holds a quote, so the text as written decides.
    const std::string_view written = keyword.Written(document_.raw_);
    for (const KnownKind& known : kKnownKinds) {
      if (written == known.keyword) {
        return known.kind;
      }
    }
    for (const std::string_view name : options_.carried_kinds) {
      if (Text(keyword) == name) {
        return RcsKind::kCarried;
      }
    }
    throw Failure{L"Unknown RCS record: " + kestrune::WidenBytes(Text(keyword).ToString())};
  }

  std::uint32_t AddRecord(RcsSpan keyword, RcsKind kind, RcsSpan identifier) {
    const auto place = static_cast<std::uint32_t>(document_.records_.size());
    const RcsText text = Text(identifier);
    if (text.empty() || text == kEnd) {
      throw Failure{L"Duplicate/invalid RCS identifier."};
    }
    if (options_.strict) {
      hashes_.push_back(text.Hash());
    }
    RcsRecord& record = document_.records_.emplace_back();
    record.kind = kind;
    record.start = keyword.Start();
    record.parent = depth_ == 0 ? kNoRcsItem : open_[depth_ - 1].place;
    record.identifier = identifier;
    return place;
  }

  /// Looks for repeated identifiers among the records so far: an error found meanwhile stands
  /// behind all of these in the file. Done in one go, as looking up one identifier at a time would
  /// wait for the memory each time.
  void IndexIdentifiers() {
    RcsIndex& index = document_.identifiers_;
    const auto count = static_cast<std::uint32_t>(hashes_.size());
    index.Reserve(count);
    for (std::uint32_t place = 0; place < count; ++place) {
      constexpr std::uint32_t kAhead = 16;
      if (place + kAhead < count) {
        index.PrefetchPlace(hashes_[place + kAhead]);
      }
      const auto same = [&](std::uint32_t other) {
        return document_.Identifier(document_.records_[other]) ==
               document_.Identifier(document_.records_[place]);
      };
      if (!index.Add(hashes_[place], place, same)) {
        throw Failure{L"Duplicate/invalid RCS identifier."};
      }
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

  /// Whether the name is new to the record. Few names are compared one by one, and only with names
  /// that share their bit; many get an index.
  bool ClaimName(OpenRecord& record, const RcsText& name) const {
    constexpr std::size_t kFew = 12;
    const std::uint64_t bit = std::uint64_t{1} << name.Sketch() % 64;
    const bool seen = (record.seen & bit) != 0;
    const Attributes& attributes = *record.attributes;
    const std::size_t end = attributes.size();
    record.seen |= bit;
    if (end - record.first > kFew) {
      return ClaimIndexedName(record, name);
    }
    for (std::size_t place = seen ? record.first : end; place < end; ++place) {
      if (attributes[place].name.In(document_.raw_) == name) {
        return false;
      }
    }
    return true;
  }

  bool ClaimIndexedName(OpenRecord& record, const RcsText& name) const {
    const Attributes& attributes = *record.attributes;
    if (!record.names) {
      record.names.emplace();
      for (std::size_t place = record.first; place < attributes.size(); ++place) {
        record.names->Add(attributes[place].name.In(document_.raw_).Hash(),
                          static_cast<std::uint32_t>(place), [](std::uint32_t) { return false; });
      }
    }
    return record.names->Add(
        name.Hash(), static_cast<std::uint32_t>(attributes.size()),
        [&](std::uint32_t place) { return attributes[place].name.In(document_.raw_) == name; });
  }

  void Close(const OpenRecord& open, RcsSpan end) {
    RcsRecord& record = document_.records_[open.place];
    record.end = end.End();
    record.subtree_end = static_cast<std::uint32_t>(document_.records_.size());
    record.attribute_count = static_cast<std::uint32_t>(open.attributes->size() - open.first);
    record.first_attribute = static_cast<std::uint32_t>(open.first);
    if (open.may_have_children) {
      auto& attributes = document_.attributes_;
      record.first_attribute = static_cast<std::uint32_t>(attributes.size());
      const auto own = pending_.begin() + static_cast<std::ptrdiff_t>(open.first);
      attributes.insert(attributes.end(), own, pending_.end());
      pending_.erase(own, pending_.end());
    }
  }

  RcsText Text(RcsSpan token) const { return token.In(document_.raw_); }

  bool ClosesRecord(RcsSpan token) const {
    return !token.quoted() && token.Written(document_.raw_) == kEnd;
  }

  // Room for a file as users have them, so that its lists need not grow.
  static constexpr std::size_t kUsualRecordBytes = 80;
  static constexpr std::size_t kUsualAttributeBytes = 32;

  const RcsParseOptions& options_;
  RcsDocument document_;
  /// Attributes of the open records that may have children, the innermost record's last: attributes
  /// may stand behind children, yet each record's lie together in the document.
  std::vector<RcsDocument::NamedValue> pending_;
  /// The records around the place that is read, the outermost first; `depth_` of them are in use.
  std::array<OpenRecord, kMaxRcsDepth + 1> open_;
  std::uint32_t depth_ = 0;
  /// The identifiers' hashes by the places of their records; empty when repeats are accepted.
  std::vector<std::uint32_t> hashes_;
};

bool RcsDocument::Parse(std::string_view raw, const RcsParseOptions& options, RcsDocument& document,
                        std::wstring& error) {
  try {
    document = RcsParser(raw, options).Run();
    return true;
  } catch (const Failure& failure) {
    error = failure.text;
    return false;
  }
}

RcsText RcsDocument::Attribute(const RcsRecord& record, std::string_view name) const {
  for (std::size_t i = 0; i < record.attribute_count; ++i) {
    const NamedValue& attribute = attributes_[record.first_attribute + i];
    if (attribute.name.In(raw_) == name) {
      return attribute.value.In(raw_);
    }
  }
  return {};
}

std::uint32_t RcsDocument::FindIdentifier(const RcsText& identifier) const {
  return identifiers_.Find(identifier.Hash(), [&](std::uint32_t place) {
    return Identifier(records_[place]) == identifier;
  });
}

}  // namespace altium_registration
