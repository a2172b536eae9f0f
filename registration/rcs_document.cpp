#include "registration/rcs_document.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>

#include "common/failure.h"

namespace altium_registration {
namespace {

using kestrune::Failure;

constexpr char kQuote = '\'';

enum class ByteClass : std::uint8_t { kBare, kBlank, kEquals, kQuoteMark };

constexpr std::array<ByteClass, 256> kByteClasses = [] {
  std::array<ByteClass, 256> classes{};
  for (const char blank : {' ', '\t', '\r', '\n'}) {
    classes[static_cast<unsigned char>(blank)] = ByteClass::kBlank;
  }
  classes['='] = ByteClass::kEquals;
  classes[kQuote] = ByteClass::kQuoteMark;
  return classes;
}();

ByteClass ClassOf(char byte) {
  return kByteClasses[static_cast<unsigned char>(byte)];
}

std::string Collapsed(std::string_view written) {
  std::string text;
  text.reserve(written.size());
  for (std::size_t i = 0; i < written.size(); ++i) {
    text.push_back(written[i]);
    if (written[i] == kQuote) {
      ++i;
    }
  }
  return text;
}

struct Token {
  RcsSpan text;
  std::uint32_t start = 0;
  std::uint32_t end = 0;
  bool bare = false;
};

/// Reads tokens one after the other. None is kept: a file of eight million one-byte tokens costs no
/// more memory than any other.
class Lexer {
 public:
  Lexer(std::string_view raw, std::size_t start)
      : begin_(raw.data()), position_(raw.data() + start), end_(raw.data() + raw.size()) {}

  bool AtEnd() {
    SkipBlanks();
    return position_ == end_;
  }

  /// Whether the next token is an unquoted "=", which is then taken.
  bool TakeEquals() {
    SkipBlanks();
    if (position_ == end_ || *position_ != '=') {
      return false;
    }
    ++position_;
    return true;
  }

  /// Takes the next token. Must not be called at the end.
  Token Next() {
    SkipBlanks();
    return *position_ == kQuote ? NextQuoted() : NextUnquoted();
  }

 private:
  void SkipBlanks() {
    while (position_ != end_ && ClassOf(*position_) == ByteClass::kBlank) {
      ++position_;
    }
  }

  Token NextUnquoted() {
    const char* const start = position_;
    if (*position_ == '=') {
      ++position_;
    } else {
      while (position_ != end_ && ClassOf(*position_) == ByteClass::kBare) {
        ++position_;
      }
    }
    if (position_ == start) {
      throw Failure{L"Invalid RCS token."};
    }
    return MakeToken(start, position_, start, position_, false, *start != '=');
  }

  Token NextQuoted() {
    const char* const start = position_;
    bool doubled = false;
    const char* close = start + 1;
    for (;; close += 2) {
      close = static_cast<const char*>(
          std::memchr(close, kQuote, static_cast<std::size_t>(end_ - close)));
      if (close == nullptr) {
        throw Failure{L"Unclosed RCS quote."};
      }
      if (close + 1 == end_ || close[1] != kQuote) {
        break;
      }
      doubled = true;
    }
    position_ = close + 1;
    return MakeToken(start, position_, start + 1, close, doubled, false);
  }

  Token MakeToken(const char* start, const char* end, const char* text_begin, const char* text_end,
                  bool doubled, bool bare) const {
    Token token;
    token.start = static_cast<std::uint32_t>(start - begin_);
    token.end = static_cast<std::uint32_t>(end - begin_);
    token.text.begin = static_cast<std::uint32_t>(text_begin - begin_);
    token.text.size = static_cast<std::uint32_t>(text_end - text_begin) & 0x7FFFFFFF;
    token.text.doubled = doubled ? 1 : 0;
    token.bare = bare;
    return token;
  }

  const char* begin_;
  const char* position_;
  const char* end_;
};

std::wstring Widened(const std::string& bytes) {
  std::wstring wide(bytes.size(), L'\0');
  std::transform(bytes.begin(), bytes.end(), wide.begin(),
                 [](char byte) { return static_cast<wchar_t>(static_cast<unsigned char>(byte)); });
  return wide;
}

/// Checks the whole text and answers where its tokens begin.
std::size_t TextStart(std::string_view raw) {
  if (raw.size() > kMaxRcsBytes || raw.find('\0') != std::string_view::npos) {
    throw Failure{L"Unsupported RCS size/encoding."};
  }
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  return raw.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
}

bool MayHaveChildren(RcsKind kind) {
  return kind == RcsKind::kTree || kind == RcsKind::kInsertion;
}

}  // namespace

class RcsParser {
 public:
  RcsParser(std::string_view raw, const RcsParseOptions& options)
      : options_(options), lexer_(raw, TextStart(raw)) {
    document_.raw_ = raw;
  }

  RcsDocument Run() {
    try {
      while (!lexer_.AtEnd()) {
        ParseRecord(lexer_.Next(), kNoRcsItem, 0);
      }
    } catch (const Failure&) {
      // A quote that is never closed makes every other finding doubtful, so it is named first.
      while (!lexer_.AtEnd()) {
        lexer_.Next();
      }
      throw;
    }
    return std::move(document_);
  }

 private:
  void ParseRecord(const Token& keyword, std::uint32_t parent, std::uint32_t depth) {
    if (depth > kMaxRcsDepth || lexer_.AtEnd()) {
      throw Failure{L"Malformed RCS nesting."};
    }
    const RcsKind kind = KindOf(keyword);
    const std::uint32_t place = AddRecord(keyword, kind, parent);
    const std::size_t first_pending = pending_.size();
    std::optional<RcsIndex> names;
    for (;;) {
      if (lexer_.AtEnd()) {
        throw Failure{L"Unterminated RCS record."};
      }
      const Token token = lexer_.Next();
      if (token.bare && Text(token) == "End") {
        CloseRecord(place, token, first_pending);
        return;
      }
      if (lexer_.TakeEquals()) {
        AddAttribute(token, first_pending, names);
      } else if (MayHaveChildren(kind)) {
        ParseRecord(token, place, depth + 1);
      } else {
        throw Failure{L"Unexpected RCS child."};
      }
    }
  }

  RcsKind KindOf(const Token& keyword) const {
    constexpr std::array<std::pair<std::string_view, RcsKind>, 6> kKinds = {
        {{"Link", RcsKind::kLink},
         {"PL", RcsKind::kPl},
         {"Tree", RcsKind::kTree},
         {"Insertion", RcsKind::kInsertion},
         {"Deletion", RcsKind::kDeletion},
         {"Separator", RcsKind::kSeparator}}};
    const RcsText text = Text(keyword);
    for (const auto& [name, kind] : kKinds) {
      if (text == name) {
        return kind;
      }
    }
    for (const std::string_view name : options_.carried_kinds) {
      if (text == name) {
        return RcsKind::kCarried;
      }
    }
    throw Failure{L"Unknown RCS record: " + Widened(text.ToString())};
  }

  std::uint32_t AddRecord(const Token& keyword, RcsKind kind, std::uint32_t parent) {
    const Token identifier = lexer_.Next();
    const auto place = static_cast<std::uint32_t>(document_.records_.size());
    const RcsText text = Text(identifier);
    if (text.empty() || text == "End" || (options_.strict && !Claim(text, place))) {
      throw Failure{L"Duplicate/invalid RCS identifier."};
    }
    RcsRecord& record = document_.records_.emplace_back();
    record.kind = kind;
    record.start = keyword.start;
    record.parent = parent;
    record.identifier = identifier.text;
    return place;
  }

  /// Whether the identifier was free; it is then this record's.
  bool Claim(const RcsText& identifier, std::uint32_t place) {
    const std::uint32_t hash = identifier.Hash();
    const auto same = [&](std::uint32_t other) {
      return document_.Identifier(document_.records_[other]) == identifier;
    };
    if (document_.identifiers_.Find(hash, same) != kNoRcsItem) {
      return false;
    }
    document_.identifiers_.Add(hash, place);
    return true;
  }

  void AddAttribute(const Token& name, std::size_t first, std::optional<RcsIndex>& names) {
    if (lexer_.AtEnd()) {
      throw Failure{L"Invalid RCS attribute."};
    }
    const Token value = lexer_.Next();
    if (HasAttribute(Text(name), first, names)) {
      throw Failure{L"Invalid RCS attribute."};
    }
    pending_.push_back({name.text, value.text});
  }

  /// Whether the open record, whose attributes begin at `first`, has the name already. Few names
  /// are compared one by one; many get an index, which takes in the new name too.
  bool HasAttribute(const RcsText& name, std::size_t first, std::optional<RcsIndex>& names) const {
    constexpr std::size_t kFew = 12;
    const auto same = [&](std::size_t place) {
      return document_.TextAt(pending_[place].name) == name;
    };
    if (pending_.size() - first <= kFew) {
      for (std::size_t place = first; place < pending_.size(); ++place) {
        if (same(place)) {
          return true;
        }
      }
      return false;
    }
    if (!names) {
      names.emplace();
      for (std::size_t place = first; place < pending_.size(); ++place) {
        names->Add(document_.TextAt(pending_[place].name).Hash(),
                   static_cast<std::uint32_t>(place));
      }
    }
    const std::uint32_t hash = name.Hash();
    if (names->Find(hash, same) != kNoRcsItem) {
      return true;
    }
    names->Add(hash, static_cast<std::uint32_t>(pending_.size()));
    return false;
  }

  void CloseRecord(std::uint32_t place, const Token& end, std::size_t first_pending) {
    RcsRecord& record = document_.records_[place];
    auto& attributes = document_.attributes_;
    record.end = end.end;
    record.subtree_end = static_cast<std::uint32_t>(document_.records_.size());
    record.first_attribute = static_cast<std::uint32_t>(attributes.size());
    record.attribute_count = static_cast<std::uint32_t>(pending_.size() - first_pending);
    const auto own = pending_.begin() + static_cast<std::ptrdiff_t>(first_pending);
    attributes.insert(attributes.end(), own, pending_.end());
    pending_.erase(own, pending_.end());
  }

  RcsText Text(const Token& token) const { return document_.TextAt(token.text); }

  const RcsParseOptions& options_;
  Lexer lexer_;
  RcsDocument document_;
  /// Attributes of the records still open, the innermost record's last: attributes may stand
  /// behind children, yet each record's lie together in the document.
  std::vector<RcsDocument::NamedValue> pending_;
};

std::string RcsText::ToString() const {
  return doubled_ ? Collapsed(written_) : std::string(written_);
}

std::uint32_t RcsText::Hash() const {
  const std::hash<std::string_view> hash;
  return static_cast<std::uint32_t>(doubled_ ? hash(Collapsed(written_)) : hash(written_));
}

bool operator==(const RcsText& left, const RcsText& right) {
  if (left.doubled_ == right.doubled_) {
    return left.written_ == right.written_;
  }
  return left.ToString() == right.ToString();
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
    if (TextAt(attribute.name) == name) {
      return TextAt(attribute.value);
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
  std::string quoted(1, kQuote);
  quoted.reserve(value.size() + 2);
  for (const char byte : value) {
    quoted.append(byte == kQuote ? 2 : 1, byte);
  }
  quoted.push_back(kQuote);
  return quoted;
}

}  // namespace altium_registration
