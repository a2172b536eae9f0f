#include "registration/rcs_document.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include "common/failure.h"
#include "common/text.h"
#include "registration/rcs_scan.h"

namespace altium_registration {
namespace {

using kestrune::Failure;

/// Above the size limit, or with a NUL byte, as UTF-16 files have them.
constexpr const wchar_t* kUnsupported = L"Unsupported RCS size/encoding.";

std::string Collapsed(std::string_view written) {
  std::string text;
  text.reserve(written.size());
  for (std::size_t i = 0; i < written.size(); ++i) {
    text.push_back(written[i]);
    if (written[i] == kRcsQuote) {
      ++i;
    }
  }
  return text;
}

template <typename Word>
std::uint64_t LoadWord(const char* bytes) {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

constexpr std::uint64_t kHashFactor = 0x9E3779B97F4A7C15;

std::uint64_t Mixed(std::uint64_t hash, std::uint64_t word) {
  hash = (hash ^ word) * kHashFactor;
  return hash ^ hash >> 32;
}

/// Reads whole words, overlapping at the end: identifiers are short, and every record has one.
std::uint32_t HashOf(std::string_view bytes) {
  const std::size_t size = bytes.size();
  const char* const data = bytes.data();
  std::uint64_t hash = size;
  if (size >= 8) {
    for (std::size_t at = 0; at + 8 < size; at += 8) {
      hash = Mixed(hash, LoadWord<std::uint64_t>(data + at));
    }
    hash = Mixed(hash, LoadWord<std::uint64_t>(data + size - 8));
  } else if (size >= 4) {
    hash =
        Mixed(hash, LoadWord<std::uint32_t>(data) << 32 | LoadWord<std::uint32_t>(data + size - 4));
  } else {
    for (const char byte : bytes) {
      hash = Mixed(hash, static_cast<unsigned char>(byte));
    }
  }
  return static_cast<std::uint32_t>(hash * kHashFactor >> 32);
}

struct Token {
  /// The text without outer quotes; doubled quotes stand as written.
  std::string_view text;
  bool quoted = false;
  bool doubled = false;

  const char* Start() const { return text.data() - (quoted ? 1 : 0); }
  const char* End() const { return text.data() + text.size() + (quoted ? 1 : 0); }
  bool ClosesRecord() const { return text == "End" && !quoted; }
  RcsText Text() const { return {text, doubled}; }
};

/// Reads tokens one after the other. None is kept: a file of eight million one-byte tokens costs no
/// more memory than any other.
class Lexer {
 public:
  explicit Lexer(std::string_view text) : position_(text.data()), end_(text.data() + text.size()) {
    SkipBlanks();
  }

  bool AtEnd() const { return position_ == end_; }

  /// Whether the next token is an unquoted "=", which is then taken.
  bool TakeEquals() {
    if (position_ == end_ || *position_ != '=') {
      return false;
    }
    ++position_;
    SkipBlanks();
    return true;
  }

  /// Takes the next token. Must not be called at the end.
  Token Next() {
    const Token token = *position_ == kRcsQuote ? QuotedToken() : UnquotedToken();
    position_ = token.End();
    SkipBlanks();
    return token;
  }

 private:
  void SkipBlanks() {
    while (position_ != end_ && IsRcsBlank(*position_)) {
      ++position_;
    }
  }

  Token UnquotedToken() const {
    const char* end = FindBareTokenEnd(position_, end_);
    if (end == position_ && *end == '=') {
      ++end;
    }
    if (end == position_) {
      throw Failure{*end == '\0' ? kUnsupported : L"Invalid RCS token."};
    }
    return {{position_, static_cast<std::size_t>(end - position_)}, false, false};
  }

  Token QuotedToken() const {
    const char* const begin = position_ + 1;
    bool doubled = false;
    for (const char* close = begin;; close += 2) {
      close = FindRcsQuoteOrNul(close, end_);
      if (close == nullptr) {
        throw Failure{L"Unclosed RCS quote."};
      }
      if (*close == '\0') {
        throw Failure{kUnsupported};
      }
      if (close + 1 == end_ || close[1] != kRcsQuote) {
        return {{begin, static_cast<std::size_t>(close - begin)}, true, doubled};
      }
      doubled = true;
    }
  }

  const char* position_;
  const char* end_;
};

/// The part of the text that holds the tokens. NUL bytes are found while reading them.
std::string_view Tokens(std::string_view raw) {
  if (raw.size() > kMaxRcsBytes) {
    throw Failure{kUnsupported};
  }
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  return raw.substr(raw.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
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

}  // namespace

class RcsParser {
 public:
  RcsParser(std::string_view raw, const RcsParseOptions& options)
      : options_(options), lexer_(Tokens(raw)) {
    document_.raw_ = raw;
    hashes_.reserve(options.strict ? raw.size() / kUsualRecordBytes : 0);
    document_.records_.reserve(raw.size() / kUsualRecordBytes);
    document_.attributes_.reserve(raw.size() / kUsualAttributeBytes);
  }

  RcsDocument Run() {
    try {
      while (!lexer_.AtEnd()) {
        ParseRecord(lexer_.Next(), kNoRcsItem, 0);
      }
    } catch (const Failure&) {
      // A text that is no 8-bit text, and a quote that is never closed, make every other finding
      // doubtful, so they are named first.
      if (document_.raw_.find('\0') != std::string_view::npos) {
        throw Failure{kUnsupported};
      }
      while (!lexer_.AtEnd()) {
        lexer_.Next();
      }
      IndexIdentifiers();
      throw;
    }
    IndexIdentifiers();
    return std::move(document_);
  }

 private:
  /// A record whose end is not read yet.
  struct OpenRecord {
    std::uint32_t place = 0;
    /// Where its attributes go: those of a record without children straight into the document, as
    /// they stand together there by themselves.
    std::vector<RcsDocument::NamedValue>& attributes;
    /// The place of its first attribute in that list.
    std::size_t first = 0;
    /// One bit for each name so far, shared with other names.
    std::uint64_t seen = 0;
    /// The names, once there are many.
    std::optional<RcsIndex> names = std::nullopt;
  };

  void ParseRecord(const Token& keyword, std::uint32_t parent, std::uint32_t depth) {
    if (depth > kMaxRcsDepth || lexer_.AtEnd()) {
      throw Failure{L"Malformed RCS nesting."};
    }
    const RcsKind kind = KindOf(keyword);
    const bool may_have_children = kind == RcsKind::kTree || kind == RcsKind::kInsertion;
    auto& attributes = may_have_children ? pending_ : document_.attributes_;
    OpenRecord record{AddRecord(keyword, kind, parent), attributes, attributes.size()};
    for (;;) {
      if (lexer_.AtEnd()) {
        throw Failure{L"Unterminated RCS record."};
      }
      const Token token = lexer_.Next();
      if (token.ClosesRecord()) {
        CloseRecord(record, token);
        return;
      }
      if (lexer_.TakeEquals()) {
        AddAttribute(record, token);
      } else if (may_have_children) {
        ParseRecord(token, record.place, depth + 1);
      } else {
        throw Failure{L"Unexpected RCS child."};
      }
    }
  }

  RcsKind KindOf(const Token& keyword) const {
    // None of the six holds a quote, so the text as written decides.
    for (const KnownKind& known : kKnownKinds) {
      if (keyword.text == known.keyword) {
        return known.kind;
      }
    }
    for (const std::string_view name : options_.carried_kinds) {
      if (keyword.Text() == name) {
        return RcsKind::kCarried;
      }
    }
    throw Failure{L"Unknown RCS record: " + kestrune::WidenBytes(keyword.Text().ToString())};
  }

  std::uint32_t AddRecord(const Token& keyword, RcsKind kind, std::uint32_t parent) {
    const Token identifier = lexer_.Next();
    const auto place = static_cast<std::uint32_t>(document_.records_.size());
    const RcsText text = identifier.Text();
    if (text.empty() || text == "End") {
      throw Failure{L"Duplicate/invalid RCS identifier."};
    }
    if (options_.strict) {
      hashes_.push_back(text.Hash());
    }
    RcsRecord& record = document_.records_.emplace_back();
    record.kind = kind;
    record.start = Offset(keyword.Start());
    record.parent = parent;
    record.identifier = Span(identifier);
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
        index.Prefetch(hashes_[place + kAhead]);
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

  void AddAttribute(OpenRecord& record, const Token& name) {
    if (lexer_.AtEnd()) {
      throw Failure{L"Invalid RCS attribute."};
    }
    const Token value = lexer_.Next();
    if (!ClaimName(record, name.Text())) {
      throw Failure{L"Invalid RCS attribute."};
    }
    record.attributes.push_back({Span(name), Span(value)});
  }

  /// Whether the name is new to the record. Few names are compared one by one, and only with names
  /// that share their bit; many get an index.
  bool ClaimName(OpenRecord& record, const RcsText& name) const {
    constexpr std::size_t kFew = 12;
    const std::uint64_t bit = std::uint64_t{1} << name.Sketch() % 64;
    const bool seen = (record.seen & bit) != 0;
    const std::size_t end = record.attributes.size();
    record.seen |= bit;
    if (end - record.first > kFew) {
      return ClaimIndexedName(record, name);
    }
    for (std::size_t place = seen ? record.first : end; place < end; ++place) {
      if (record.attributes[place].name.In(document_.raw_) == name) {
        return false;
      }
    }
    return true;
  }

  bool ClaimIndexedName(OpenRecord& record, const RcsText& name) const {
    const auto& attributes = record.attributes;
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

  void CloseRecord(const OpenRecord& open, const Token& end) {
    RcsRecord& record = document_.records_[open.place];
    auto& attributes = document_.attributes_;
    record.end = Offset(end.End());
    record.subtree_end = static_cast<std::uint32_t>(document_.records_.size());
    record.attribute_count = static_cast<std::uint32_t>(open.attributes.size() - open.first);
    record.first_attribute = static_cast<std::uint32_t>(open.first);
    if (&open.attributes == &pending_) {
      record.first_attribute = static_cast<std::uint32_t>(attributes.size());
      const auto own = pending_.begin() + static_cast<std::ptrdiff_t>(open.first);
      attributes.insert(attributes.end(), own, pending_.end());
      pending_.erase(own, pending_.end());
    }
  }

  std::uint32_t Offset(const char* position) const {
    return static_cast<std::uint32_t>(position - document_.raw_.data());
  }

  RcsSpan Span(const Token& token) const {
    return {Offset(token.text.data()), static_cast<std::uint32_t>(token.text.size()),
            token.doubled};
  }

  // Room for a file as users have them, so that its lists need not grow.
  static constexpr std::size_t kUsualRecordBytes = 80;
  static constexpr std::size_t kUsualAttributeBytes = 32;

  const RcsParseOptions& options_;
  Lexer lexer_;
  RcsDocument document_;
  /// Attributes of the open records that may have children, the innermost record's last: attributes
  /// may stand behind children, yet each record's lie together in the document.
  std::vector<RcsDocument::NamedValue> pending_;
  /// The identifiers' hashes by the places of their records; empty when repeats are accepted.
  std::vector<std::uint32_t> hashes_;
};

std::string RcsText::ToString() const {
  return doubled_ ? Collapsed(written_) : std::string(written_);
}

std::uint32_t RcsText::Hash() const {
  return HashOf(doubled_ ? std::string_view(Collapsed(written_)) : written_);
}

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

std::string Quote(std::string_view value) {
  std::string quoted(1, kRcsQuote);
  quoted.reserve(value.size() + 2);
  for (const char byte : value) {
    quoted.append(byte == kRcsQuote ? 2 : 1, byte);
  }
  quoted.push_back(kRcsQuote);
  return quoted;
}

}  // namespace altium_registration
