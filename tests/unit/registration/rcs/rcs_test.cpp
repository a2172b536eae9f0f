#include "registration/rcs/rcs.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "tests/support/registration/rcs_laws.h"
#include "tests/support/samples.h"

namespace altium_registration {
namespace {

const std::vector<std::string> kChange = {"Change"};

/// Checks that the naive parser agrees, which is slow for large texts.
void CheckLaw(const std::string& raw, const RcsOptions& options) {
  if (raw.size() < kMaxRcsBytes / 10) {
    EXPECT_EQ(rcs_laws::BrokenParseLaw(raw, options), "") << raw;
  }
}

/// Returns the error text for a file; empty when it is accepted.
std::wstring Refused(std::string raw, const RcsOptions& options = {}) {
  CheckLaw(raw, options);
  Rcs rcs;
  std::wstring error;
  return Rcs::Parse(std::move(raw), options, rcs, error) ? L"" : error;
}

Rcs Parsed(std::string raw, const RcsOptions& options = {}) {
  CheckLaw(raw, options);
  Rcs rcs;
  std::wstring error;
  EXPECT_TRUE(Rcs::Parse(std::move(raw), options, rcs, error));
  EXPECT_EQ(error, L"");
  return rcs;
}

std::string Attribute(const Rcs& rcs, std::size_t place, std::string_view name) {
  return rcs.Attribute(rcs.nodes().at(place), name).ToString();
}

/// Returns a chain of Trees, the innermost at this depth.
std::string Nested(int depth) {
  std::string text;
  for (int i = 0; i <= depth; ++i) {
    text += "Tree T" + std::to_string(i) + "\n";
  }
  for (int i = 0; i <= depth; ++i) {
    text += "End\n";
  }
  return text;
}

TEST(RcsKeywords, AreTheParsedKindsAndEnd) {
  for (const std::string_view word :
       {"Tree", "PL", "Link", "Insertion", "Deletion", "Separator", "End"}) {
    EXPECT_TRUE(IsRcsKeyword(word)) << word;
  }
  for (const std::string_view word : {"", "tree", "Trees", "Change", "end"}) {
    EXPECT_FALSE(IsRcsKeyword(word)) << word;
  }
}

TEST(Rcs, EmptyTextsAreDocumentsWithoutRecords) {
  for (const std::string raw : {"", " \t\r\n", "\xEF\xBB\xBF", "\xEF\xBB\xBF \r\n"}) {
    EXPECT_TRUE(Parsed(raw).nodes().empty());
  }
}

TEST(Rcs, KeepsRecordsInFileOrder) {
  const std::string raw =
      "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\n"
      "    Link L1 PLID='P1' End\r\n"
      "    Separator S1 End\r\n"
      "End\r\n"
      "PL P1 Command='A:B' End Insertion I1 TargetID='T' Link L2 PLID='P1' End End "
      "Deletion D1 DeleteID='L2' End\r\n";
  const Rcs rcs = Parsed(raw);
  const auto& records = rcs.nodes();
  ASSERT_EQ(records.size(), 7U);
  const std::array<NodeKind, 7> kinds = {
      NodeKind::kTree,      NodeKind::kLink, NodeKind::kSeparator, NodeKind::kPl,
      NodeKind::kInsertion, NodeKind::kLink, NodeKind::kDeletion};
  const std::array<std::string_view, 7> names = {"PCBCustom", "L1", "S1", "P1", "I1", "L2", "D1"};
  const std::array<std::uint8_t, 7> depths = {0, 1, 1, 0, 0, 1, 0};
  const std::array<std::uint32_t, 7> ends = {3, 2, 3, 4, 6, 6, 7};
  for (std::uint32_t i = 0; i < 7; ++i) {
    EXPECT_EQ(records[i].kind, kinds[i]);
    EXPECT_TRUE(rcs.Identifier(records[i]) == names[i]);
    EXPECT_EQ(records[i].depth, depths[i]);
    EXPECT_EQ(records[i].subtree_end, ends[i]);
    EXPECT_EQ(rcs.FindIdentifier(names[i]), i);
  }
  EXPECT_EQ(Attribute(rcs, 0, "Caption"), "[Custom]");
  EXPECT_EQ(Attribute(rcs, 0, "TopLevel"), "True");
  EXPECT_EQ(Attribute(rcs, 0, "caption"), "");
  EXPECT_EQ(Attribute(rcs, 5, "PLID"), "P1");
  EXPECT_EQ(rcs.FindIdentifier("P2"), kNoItem);
}

TEST(Rcs, OffsetsIncludeMarkAndOuterQuotes) {
  const std::string raw = "\xEF\xBB\xBF 'Tree' 'x' A='y'\nPL p End\nEnd";
  const Rcs rcs = Parsed(raw);
  const Node& tree = rcs.nodes().at(0);
  EXPECT_EQ(tree.start, 4U);
  EXPECT_EQ(tree.end, raw.size());
  EXPECT_EQ(tree.EndKeyword(), raw.size() - 3);
  const Node& command = rcs.nodes().at(1);
  EXPECT_EQ(raw.substr(command.start, command.end - command.start), "PL p End");
}

TEST(Rcs, AttributesAfterChildrenBelongToTheirRecord) {
  const Rcs rcs = Parsed("Tree a A=1 Tree b B=2 PL c C=3 End D=4 End E=5 Link d F=6 End G=7 End");
  EXPECT_EQ(Attribute(rcs, 0, "A") + Attribute(rcs, 0, "E") + Attribute(rcs, 0, "G"), "157");
  EXPECT_EQ(Attribute(rcs, 1, "B") + Attribute(rcs, 1, "D"), "24");
  EXPECT_EQ(Attribute(rcs, 2, "C"), "3");
  EXPECT_EQ(Attribute(rcs, 3, "F"), "6");
  EXPECT_EQ(Attribute(rcs, 0, "B"), "");
}

TEST(Rcs, DoubledQuotesMeanOne) {
  const Rcs rcs = Parsed("PL 'it''s' Caption='It''s' B='''' C='''''' D='' End");
  EXPECT_TRUE(rcs.Identifier(rcs.nodes()[0]) == "it's");
  EXPECT_EQ(rcs.FindIdentifier("it's"), 0U);
  EXPECT_EQ(rcs.FindIdentifier("it's"), 0U);
  EXPECT_EQ(rcs.FindIdentifier("it''s"), kNoItem);
  EXPECT_EQ(Attribute(rcs, 0, "Caption"), "It's");
  EXPECT_EQ(Attribute(rcs, 0, "B"), "'");
  EXPECT_EQ(Attribute(rcs, 0, "C"), "''");
  EXPECT_EQ(Attribute(rcs, 0, "D"), "");
}

TEST(Rcs, QuoteAndParseAreInverse) {
  EXPECT_EQ(Quote("It's"), "'It''s'");
  EXPECT_EQ(Quote(""), "''");
  for (const std::string value : {"", "'", "''", "a=b", "x y\r\nz", "End", "It's 'so'"}) {
    const std::string raw = "PL p A=" + Quote(value) + " End";
    EXPECT_EQ(Attribute(Parsed(raw), 0, "A"), value);
  }
}

TEST(Rcs, AttributesNeedNoBlanksBetweenThem) {
  const Rcs rcs = Parsed("PL p A='x'B='y'C=z'D'=w End");
  EXPECT_EQ(Attribute(rcs, 0, "A"), "x");
  EXPECT_EQ(Attribute(rcs, 0, "B"), "y");
  EXPECT_EQ(Attribute(rcs, 0, "C"), "z");
  EXPECT_EQ(Attribute(rcs, 0, "D"), "w");
}

TEST(Rcs, QuotedTokensMayContainSeparators) {
  const Rcs rcs = Parsed("PL p A='Scope = Layer\r\nEnd' End");
  EXPECT_EQ(Attribute(rcs, 0, "A"), "Scope = Layer\r\nEnd");
}

TEST(Rcs, BareTokensEndAtSeparators) {
  const Rcs rcs = Parsed("Tree a'b'=c End");
  EXPECT_TRUE(rcs.Identifier(rcs.nodes()[0]) == "a");
  EXPECT_EQ(Attribute(rcs, 0, "b"), "c");
}

TEST(Rcs, OnlySpaceTabCrAndLfSeparate) {
  for (const std::string byte : {"\xA0", "\x0B", "\x0C", "\x85", "\x1F"}) {
    EXPECT_TRUE(Parsed("PL p" + byte + "q End").FindIdentifier("p" + byte + "q") == 0);
    EXPECT_EQ(Refused(byte + "PL p End"),
              std::wstring(L"Unknown RCS record: ") +
                  static_cast<wchar_t>(static_cast<unsigned char>(byte[0])) + L"PL");
  }
  EXPECT_EQ(Parsed("PL\tp\rA=1\nEnd").nodes().size(), 1U);
}

TEST(Rcs, OnlyAnUnquotedEndCloses) {
  EXPECT_EQ(Refused("Tree a 'End'"), L"Malformed RCS nesting.");
  EXPECT_EQ(Refused("Tree a 'End' End"), L"Unknown RCS record: End");
  EXPECT_EQ(Attribute(Parsed("Tree a 'End'=1 End"), 0, "End"), "1");
  EXPECT_EQ(Refused("Tree a END"), L"Malformed RCS nesting.");
}

TEST(Rcs, TokenAfterEqualsSignIsAValue) {
  EXPECT_EQ(Attribute(Parsed("PL a A=End End"), 0, "A"), "End");
  EXPECT_EQ(Attribute(Parsed("PL a A==End"), 0, "A"), "=");
  EXPECT_EQ(Attribute(Parsed("PL a A = 1 End"), 0, "A"), "1");
}

TEST(Rcs, AQuotedEqualsSignMakesNoAttribute) {
  EXPECT_EQ(Refused("PL a A'='1 End"), L"Unexpected RCS child.");
  EXPECT_EQ(Attribute(Parsed("PL a '='=1 End"), 0, "="), "1");
}

TEST(Rcs, EqualsSignMayBeIdentifierOrName) {
  const Rcs rcs = Parsed("PL = ==1 End");
  EXPECT_TRUE(rcs.Identifier(rcs.nodes()[0]) == "=");
  EXPECT_EQ(Attribute(rcs, 0, "="), "1");
  EXPECT_EQ(Refused("= x End"), L"Unknown RCS record: =");
}

TEST(Rcs, QuotedKeywordsBeginRecords) {
  EXPECT_EQ(Parsed("'PL' p End").nodes().at(0).kind, NodeKind::kPl);
}

TEST(Rcs, SizeAndNullPrecedeTokens) {
  std::string full = "PL p A='";
  full.append(kMaxRcsBytes - full.size() - 5, 'x');
  full += "' End";
  ASSERT_EQ(full.size(), 8'388'608U);
  EXPECT_EQ(Attribute(Parsed(full), 0, "A").size(), kMaxRcsBytes - 13);
  EXPECT_EQ(Refused(full + " "), L"Unsupported RCS size/encoding.");
  EXPECT_EQ(Refused(std::string(kMaxRcsBytes + 1, '\'')), L"Unsupported RCS size/encoding.");
  EXPECT_EQ(Refused(std::string("'\0", 2)), L"Unsupported RCS size/encoding.");
  EXPECT_EQ(Refused(std::string("PL p End\0", 9)), L"Unsupported RCS size/encoding.");
  EXPECT_EQ(Refused(std::string("\xFF\xFEP\0L\0", 6)), L"Unsupported RCS size/encoding.");
}

TEST(Rcs, OnlyWholeByteOrderMarkIsSkipped) {
  EXPECT_EQ(Refused("\xEF\xBBPL p End"), L"Unknown RCS record: \xEF\xBBPL");
  EXPECT_EQ(Refused("\xEF\xBB\xBF\xEF\xBB\xBFPL p End"), L"Unknown RCS record: \xEF\xBB\xBFPL");
}

TEST(Rcs, UnclosedQuotePrecedesOtherErrors) {
  for (const std::string before : {"", "Foo x ", "PL End ", "PL p q ", "PL p A=1 A=2 ", "End "}) {
    EXPECT_EQ(Refused(before + "'open"), L"Unclosed RCS quote.") << before;
    EXPECT_EQ(Refused(before + "'open''"), L"Unclosed RCS quote.") << before;
  }
  EXPECT_EQ(Refused("PL p A='"), L"Unclosed RCS quote.");
  EXPECT_EQ(Refused("PL p A='x End"), L"Unclosed RCS quote.");
  EXPECT_EQ(Refused(Nested(33) + "'"), L"Unclosed RCS quote.");
}

TEST(Rcs, LastKeywordIsNamedBeforeBeingRead) {
  EXPECT_EQ(Refused("foo"), L"Malformed RCS nesting.");
  EXPECT_EQ(Refused("PL"), L"Malformed RCS nesting.");
  EXPECT_EQ(Refused("foo x"), L"Unknown RCS record: foo");
  EXPECT_EQ(Refused("PL p End End"), L"Malformed RCS nesting.");
  EXPECT_EQ(Refused("PL p End End PL q End"), L"Unknown RCS record: End");
  EXPECT_EQ(Refused("Tree a PL"), L"Malformed RCS nesting.");
}

TEST(Rcs, KeywordsAreCaseSensitive) {
  EXPECT_EQ(Refused("tree a End"), L"Unknown RCS record: tree");
  EXPECT_EQ(Refused("PLx a End"), L"Unknown RCS record: PLx");
  EXPECT_EQ(Refused("'it''s' a End"), L"Unknown RCS record: it's");
  EXPECT_EQ(Refused("'' a End"), L"Unknown RCS record: ");
  EXPECT_EQ(Refused("\xCF\xF0 a End"), L"Unknown RCS record: \x00CF\x00F0");
}

TEST(Rcs, IdentifiersAreUniqueAndNotEmpty) {
  constexpr std::wstring_view kMessage = L"Duplicate/invalid RCS identifier.";
  EXPECT_EQ(Refused("PL '' End"), kMessage);
  EXPECT_EQ(Refused("PL End"), kMessage);
  EXPECT_EQ(Refused("PL End End"), kMessage);
  EXPECT_EQ(Refused("PL 'End' End"), kMessage);
  EXPECT_EQ(Refused("PL p End Link p End"), kMessage);
  EXPECT_EQ(Refused("PL p End PL 'p' End"), kMessage);
  EXPECT_EQ(Refused("Tree a Link p End End Tree b Tree c PL p End End End"), kMessage);
  EXPECT_EQ(Refused("Tree a Tree a End End"), kMessage);
  EXPECT_EQ(Refused("PL 'a''b' End PL 'a''b' End"), kMessage);
  EXPECT_EQ(Refused("PL p End PL P End"), L"");
}

TEST(Rcs, RepeatedIdentifiersAreAcceptedWhenNotStrict) {
  EXPECT_EQ(Refused("PL p End Link p End", {.strict = false}), L"");
  EXPECT_EQ(Refused("PL '' End", {.strict = false}), L"Duplicate/invalid RCS identifier.");
  EXPECT_EQ(Refused("PL End End", {.strict = false}), L"Duplicate/invalid RCS identifier.");
}

TEST(Rcs, RecordsMustBeClosed) {
  EXPECT_EQ(Refused("PL p"), L"Unterminated RCS record.");
  EXPECT_EQ(Refused("PL p A=1"), L"Unterminated RCS record.");
  EXPECT_EQ(Refused("Tree a Link l End"), L"Unterminated RCS record.");
  EXPECT_EQ(Refused("Tree a A=1 PL p"), L"Unterminated RCS record.");
}

TEST(Rcs, OnlyTreesAndInsertionsHaveChildren) {
  for (const std::string kind : {"PL", "Link", "Deletion", "Separator"}) {
    EXPECT_EQ(Refused(kind + " a Link b End End"), L"Unexpected RCS child.");
    EXPECT_EQ(Refused(kind + " a foo"), L"Unexpected RCS child.");
    EXPECT_EQ(Refused(kind + " a 'End'"), L"Unexpected RCS child.");
  }
  EXPECT_EQ(Refused("Insertion a Link b End End"), L"");
  EXPECT_EQ(Refused("Insertion a Insertion b End Tree c End End"), L"");
}

TEST(Rcs, ChildRuleComesBeforeDepthRule) {
  std::string text = Nested(31);
  text.insert(text.find("End"), "Link l x End\n");
  EXPECT_EQ(Refused(text), L"Unexpected RCS child.");
}

TEST(Rcs, DepthThirtyTwoIsTheLastAccepted) {
  EXPECT_EQ(Parsed(Nested(32)).nodes().size(), 33U);
  EXPECT_EQ(Refused(Nested(33)), L"Malformed RCS nesting.");
  std::string foreign = Nested(32);
  foreign.insert(foreign.find("End"), "foo x ");
  EXPECT_EQ(Refused(foreign), L"Malformed RCS nesting.");
}

TEST(Rcs, AttributesNeedValueAndUniqueName) {
  constexpr std::wstring_view kMessage = L"Invalid RCS attribute.";
  EXPECT_EQ(Refused("PL p A="), kMessage);
  EXPECT_EQ(Refused("PL p A=1 A=2 End"), kMessage);
  EXPECT_EQ(Refused("PL p A=1 'A'=1 End"), kMessage);
  EXPECT_EQ(Refused("PL p 'a''b'=1 'a''b'=1 End"), kMessage);
  EXPECT_EQ(Refused("Tree p A=1 Link l A=1 End A=2 End"), kMessage);
  EXPECT_EQ(Refused("PL p A=1 a=2 End"), L"");
  EXPECT_EQ(Refused("PL p ''=1 End"), L"");
}

TEST(Rcs, RepeatedNamesAreFoundAmongMany) {
  for (const int count : {1, 11, 12, 13, 14, 25, 70}) {
    std::string text = "Tree t";
    for (int i = 0; i < count; ++i) {
      text += " A" + std::to_string(i) + "=" + std::to_string(i);
      if (i % 5 == 4) {
        text += " PL p" + std::to_string(i) + " A0=x A1=y End";
      }
    }
    const std::string whole = text + " End";
    const Rcs rcs = Parsed(whole);
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(Attribute(rcs, 0, "A" + std::to_string(i)), std::to_string(i));
      const std::string repeated = text + " 'A" + std::to_string(i) + "'=again End";
      EXPECT_EQ(Refused(repeated), L"Invalid RCS attribute.") << count << " " << i;
    }
  }
}

TEST(Rcs, RecordsMayHaveSameManyNames) {
  std::string names;
  for (int i = 0; i < 20; ++i) {
    names += " A" + std::to_string(i) + "=1";
  }
  EXPECT_EQ(Refused("PL p" + names + " End Tree t" + names + " PL q" + names + " End End"), L"");
}

TEST(Rcs, FirstErrorInFileOrderIsNamed) {
  EXPECT_EQ(Refused("PL p A=1 A=2 End PL p End foo x"), L"Invalid RCS attribute.");
  EXPECT_EQ(Refused("PL p End PL p A=1 A=2 End"), L"Duplicate/invalid RCS identifier.");
  EXPECT_EQ(Refused("Foo x PL p End PL p End"), L"Unknown RCS record: Foo");
}

TEST(Rcs, RepetitionAmongManyNamesPrecedesLaterErrors) {
  std::string many = " A0=1";
  for (int i = 1; i < 20; ++i) {
    many += " A" + std::to_string(i) + "=1";
  }
  const std::string repeated = "PL p End Tree t" + many + " A0=2";
  for (const char* const later :
       {"", " foo x", " PL p End End", " PL q A=1 A=2 End", " Tree End", " PL q PL", " End End"}) {
    EXPECT_EQ(Refused(repeated + later), L"Invalid RCS attribute.") << later;
    EXPECT_EQ(Refused(repeated + " Tree u" + many + later), L"Invalid RCS attribute.") << later;
  }
  EXPECT_EQ(Refused("PL p End Tree t" + many + " PL p End A0=2 End"),
            L"Duplicate/invalid RCS identifier.");
  EXPECT_EQ(Refused("PL p End Tree t" + many + " foo x A0=2 End"), L"Unknown RCS record: foo");
  EXPECT_EQ(Refused(repeated + " End '"), L"Unclosed RCS quote.");
}

TEST(Rcs, ExtraRecordsAreAcceptedWithoutChildren) {
  const std::string raw =
      "Change _User241 TargetID='PLManRoute:PlaceLine' Field0='Shortcut1' Value0=4  End";
  EXPECT_EQ(Refused(raw), L"Unknown RCS record: Change");
  const Rcs rcs = Parsed(raw, {.extra_record_kinds = kChange});
  EXPECT_EQ(rcs.nodes().at(0).kind, NodeKind::kExtra);
  EXPECT_EQ(Attribute(rcs, 0, "Value0"), "4");
  EXPECT_EQ(Refused("Change c Link l End End", {.extra_record_kinds = kChange}),
            L"Unexpected RCS child.");
  EXPECT_EQ(Refused("change c End", {.extra_record_kinds = kChange}),
            L"Unknown RCS record: change");
  EXPECT_EQ(Refused("Change c End PL c End", {.extra_record_kinds = kChange}),
            L"Duplicate/invalid RCS identifier.");
}

TEST(Rcs, FailedParseLeavesFileAndTextAlone) {
  Rcs rcs = Parsed("PL p End");
  std::wstring error;
  std::string text = "PL p A='x'";
  EXPECT_FALSE(Rcs::Parse(std::move(text), {}, rcs, error));
  // cppcheck-suppress accessMoved; only a parsed text is moved
  EXPECT_EQ(text, "PL p A='x'");
  EXPECT_EQ(rcs.text(), "PL p End");
  EXPECT_EQ(rcs.nodes().size(), 1U);
}

/// The size of the largest texts; an eighth of it where the code counts its steps and is slow.
#ifdef KESTRUNE_COUNTS_STEPS
constexpr std::size_t kLarge = kMaxRcsBytes / 8;
#else
constexpr std::size_t kLarge = kMaxRcsBytes;
#endif

TEST(Rcs, LargestFileOfOneByteTokensParses) {
  std::string text = "Tree a ";
  while (text.size() + 2 <= kLarge) {
    text += "==";
  }
  EXPECT_EQ(Refused(text), L"Invalid RCS attribute.");
  text.replace(0, 7, "x y = =");
  EXPECT_EQ(Refused(text), L"Unknown RCS record: x");
}

TEST(Rcs, LargestFileOfSmallestRecordsParses) {
  std::string text;
  std::size_t count = 0;
  for (std::string record; text.size() + 32 < kLarge; ++count) {
    record = "PL ";
    for (std::size_t n = count + 1; n != 0; n /= 36) {
      record += "0123456789abcdefghijklmnopqrstuvwxyz"[n % 36];
    }
    text += record + " End ";
  }
  EXPECT_EQ(Parsed(text).nodes().size(), count);
}

TEST(Rcs, LargestRecordOfAttributesParses) {
  std::string text = "PL p ";
  std::uint32_t count = 0;
  for (; text.size() + 32 < kLarge; ++count) {
    text += std::to_string(count) + "=1 ";
  }
  const Rcs rcs = Parsed(text + "Z=last End");
  EXPECT_EQ(Attribute(rcs, 0, std::to_string(count - 1)), "1");
  EXPECT_EQ(Attribute(rcs, 0, "Z"), "last");
  EXPECT_EQ(Refused(text + "0=1 End"), L"Invalid RCS attribute.");
}

TEST(RcsSamples, RealFilesParseWithChangeAccepted) {
  const auto samples = kestrune_tests::ReadSamples("rcs", ".RCS");
  if (samples.empty()) {
    GTEST_SKIP() << "The real customization files are not here.";
  }
  EXPECT_EQ(samples.size(), 23U);
  int refused = 0;
  for (const auto& sample : samples) {
    SCOPED_TRACE(sample.name);
    const bool altered = sample.bytes.find("Change ") != std::string::npos;
    refused += altered ? 1 : 0;
    EXPECT_EQ(Refused(sample.bytes), altered ? L"Unknown RCS record: Change" : L"");
    const Rcs rcs = Parsed(sample.bytes, {.extra_record_kinds = kChange});
    EXPECT_FALSE(rcs.nodes().empty());
  }
  EXPECT_GE(refused, 10);
}

}  // namespace
}  // namespace altium_registration
