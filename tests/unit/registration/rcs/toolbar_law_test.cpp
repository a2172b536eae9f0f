#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "registration/rcs/toolbar_edit.h"
#include "tests/support/registration/rcs_edit.h"
#include "tests/support/registration/rcs_generator.h"
#include "tests/support/registration/rcs_model.h"
#include "tests/support/samples.h"

namespace altium_registration {
namespace {

const std::vector<std::string> kChange = {"Change"};

std::string Narrow(const std::wstring& text) {
  std::string bytes;
  for (const wchar_t unit : text) {
    bytes.push_back(static_cast<char>(unit));
  }
  return bytes;
}

using kestrune_tests::Edited;

Edited Edit(const std::string& text, const Spec& spec, bool install,
            const rcs_model::Kinds& extra = {}) {
  return kestrune_tests::EditText(text, spec, install, extra);
}

/// Returns every record that is not ours as text, with its position in the tree. A link to
/// `command`, the identifier that installing gives to our command, counts as ours.
std::vector<std::string> ForeignRecords(const std::string& text, const Spec& spec,
                                        const rcs_model::Kinds& extra,
                                        const std::string& command = "") {
  const rcs_model::Nodes nodes = rcs_model::Parse(text, true, extra);
  const rcs_model::References references = rcs_model::FindAll(nodes, spec);
  std::vector<std::string> records;
  const auto collect = [&](const auto& self, const rcs_model::Nodes& level,
                           const std::string& path) -> void {
    for (const rcs_model::Node& node : level) {
      const bool adopted = node.kind == "Link" && !command.empty() && node.Value("PLID") == command;
      if (adopted || rcs_model::Owned(node, references)) {
        continue;
      }
      std::string record = path + "/" + node.kind + " " + node.identifier;
      self(self, node.children, record);
      for (const auto& [name, value] : node.attributes) {
        record += "|" + name + "=" + value;
      }
      records.push_back(record);
    }
  };
  collect(collect, nodes, "");
  return records;
}

std::string InstalledCommand(const std::string& text, const Spec& spec) {
  return *rcs_model::FindAll(rcs_model::Parse(text, true, {}), spec).commands.begin();
}

std::string WithoutCustomTree(std::vector<std::string>& records) {
  std::string found;
  std::erase_if(records, [&](const std::string& record) {
    if (record.starts_with("/Tree PCBCustom|")) {
      found = record;
      return true;
    }
    return false;
  });
  return found;
}

/// Returns whether `shorter` is a subsequence of `longer`.
bool IsSubsequence(const std::string& shorter, const std::string& longer) {
  std::size_t at = 0;
  for (const char byte : longer) {
    at += at < shorter.size() && shorter[at] == byte ? 1U : 0U;
  }
  return at == shorter.size();
}

/// Calls `check(text, seed)` for several thousand files that parse strictly.
template <typename Check>
void ForEachFile(const Check& check) {
  int files = 0;
  for (std::uint64_t seed = 0; seed < 2500; ++seed) {
    const std::string text = kestrune_tests::RcsGenerator(seed).File();
    Rcs rcs;
    std::wstring error;
    if (Rcs::Parse(std::string(text), {}, rcs, error)) {
      ++files;
      SCOPED_TRACE(text);
      check(text);
    }
    if (testing::Test::HasFailure()) {
      return;
    }
  }
  EXPECT_GT(files, 2000);
}

TEST(ToolbarLaw, EditAgreesWithNaiveEdit) {
  const Spec spec = kestrune_tests::ExampleSpec();
  int successes = 0;
  for (std::uint64_t seed = 0; seed < 4000; ++seed) {
    kestrune_tests::RcsGenerator generator(seed);
    const std::string text = seed % 4 != 0 ? generator.File() : generator.BrokenFile();
    for (const bool install : {true, false}) {
      const Edited edited = Edit(text, spec, install);
      const rcs_model::Outcome expected = rcs_model::Edit(text, spec, install, {});
      ASSERT_EQ(edited.success, expected.success) << text;
      ASSERT_EQ(Narrow(edited.error), expected.error) << text;
      if (expected.success) {
        ASSERT_EQ(edited.text, expected.text) << text;
        ++successes;
      }
    }
  }
  EXPECT_GT(successes, 5000);
}

TEST(ToolbarLaw, InstallKeepsEveryForeignRecord) {
  const Spec spec = kestrune_tests::ExampleSpec();
  int installed = 0;
  ForEachFile([&](const std::string& text) {
    const Edited edited = Edit(text, spec, true);
    if (!edited.success) {
      return;
    }
    ++installed;
    const std::string command = InstalledCommand(edited.text, spec);
    std::vector<std::string> before = ForeignRecords(text, spec, {}, command);
    std::vector<std::string> after = ForeignRecords(edited.text, spec, {});
    const std::string tree_before = WithoutCustomTree(before);
    const std::string tree_after = WithoutCustomTree(after);
    EXPECT_EQ(before, after);
    EXPECT_TRUE(tree_before.empty() || tree_before == tree_after);
  });
  EXPECT_GT(installed, 1500);
}

TEST(ToolbarLaw, InstallPreservesForeignBytesInOrder) {
  const Spec spec = kestrune_tests::ExampleSpec();
  ForEachFile([&](const std::string& text) {
    const Edited edited = Edit(text, spec, true);
    if (edited.success && edited.text != text) {
      const rcs_model::Nodes nodes = rcs_model::Parse(text, true, {});
      EXPECT_TRUE(
          IsSubsequence(rcs_model::Cut(text, nodes, rcs_model::FindAll(nodes, spec)), edited.text));
    }
  });
}

TEST(ToolbarLaw, InstallingTwiceIsTheIdentity) {
  const Spec spec = kestrune_tests::ExampleSpec();
  ForEachFile([&](const std::string& text) {
    const Edited once = Edit(text, spec, true);
    if (once.success) {
      const Edited twice = Edit(once.text, spec, true);
      EXPECT_TRUE(twice.success);
      EXPECT_EQ(twice.text, once.text);
    }
  });
}

TEST(ToolbarLaw, InstallThenRemovePreservesForeignRecords) {
  const Spec spec = kestrune_tests::ExampleSpec();
  ForEachFile([&](const std::string& text) {
    const Edited installed = Edit(text, spec, true);
    if (!installed.success) {
      return;
    }
    const Edited removed = Edit(installed.text, spec, false);
    ASSERT_TRUE(removed.success);
    EXPECT_EQ(removed.text.find("RunKestrune"), text.find("RunKestrune", text.size()));
    const std::string command = InstalledCommand(installed.text, spec);
    std::vector<std::string> before = ForeignRecords(text, spec, {}, command);
    std::vector<std::string> after = ForeignRecords(removed.text, spec, {});
    const std::string tree_before = WithoutCustomTree(before);
    const std::string tree_after = WithoutCustomTree(after);
    EXPECT_EQ(before, after);
    EXPECT_EQ(tree_after,
              tree_before.empty() ? "/Tree PCBCustom|Caption=[Custom]|TopLevel=True" : tree_before);
  });
}

TEST(ToolbarLaw, SuccessParsesStrictlyAndValidates) {
  const Spec spec = kestrune_tests::ExampleSpec();
  ForEachFile([&](const std::string& text) {
    for (const bool install : {true, false}) {
      const Edited edited = Edit(text, spec, install);
      if (edited.success) {
        std::wstring error;
        EXPECT_TRUE(kestrune_tests::ValidateText(edited.text, spec, install, error));
        EXPECT_NO_THROW(rcs_model::Validate(edited.text, spec, install, {}));
      }
    }
  });
}

TEST(ToolbarLaw, RemovingTwiceIsTheIdentity) {
  const Spec spec = kestrune_tests::ExampleSpec();
  ForEachFile([&](const std::string& text) {
    const Edited once = Edit(text, spec, false);
    ASSERT_TRUE(once.success);
    EXPECT_EQ(Edit(once.text, spec, false).text, once.text);
  });
}

/// Returns the tokens of a text; a quoted one has a mark that distinguishes it from a bare one.
std::vector<std::string> Tokens(const std::string& text) {
  std::vector<std::string> tokens;
  for (const rcs_model::Token& token : rcs_model::Tokens(text)) {
    tokens.push_back((token.quoted ? "'" : "") + token.text);
  }
  return tokens;
}

/// Removes the tokens of the empty custom tree that an uninstallation leaves.
void DropEmptyCustomTree(std::vector<std::string>& tokens) {
  const std::vector<std::string> tree =
      Tokens("Tree PCBCustom Caption='[Custom]' TopLevel='True' End");
  const auto found = std::ranges::search(tokens, tree);
  tokens.erase(found.begin(), found.end());
}

bool HasCustomTree(const std::string& text) {
  bool found = false;
  for (const rcs_model::Node& node : rcs_model::Parse(text, true, {})) {
    found = found || (node.kind == "Tree" && node.identifier == "PCBCustom");
  }
  return found;
}

TEST(ToolbarLaw, TokensReturnAfterInstallingAndRemoving) {
  const Spec spec = kestrune_tests::ExampleSpec();
  int compared = 0;
  ForEachFile([&](const std::string& text) {
    const Edited clean = Edit(text, spec, false);
    const Edited installed = Edit(clean.text, spec, true);
    if (!installed.success || InstalledCommand(installed.text, spec) != "PLKestrune" ||
        clean.text.find("PLKestrune") != std::string::npos) {
      return;
    }
    ++compared;
    std::vector<std::string> after = Tokens(Edit(installed.text, spec, false).text);
    if (!HasCustomTree(clean.text)) {
      DropEmptyCustomTree(after);
    }
    EXPECT_EQ(Tokens(clean.text), after);
  });
  EXPECT_GT(compared, 500);
}

/// Returns whether each CR belongs to a line end.
bool HasNoLoneReturn(const std::string& text) {
  return rcs_model::Replaced(text, "\r\n", "").find('\r') == std::string::npos;
}

std::string WithLineFeeds(const std::string& text) {
  return rcs_model::Replaced(text, "\r\n", "\n");
}

TEST(ToolbarLaw, InstallingCommutesWithTheFilesLineEnds) {
  const Spec spec = kestrune_tests::ExampleSpec();
  int compared = 0;
  ForEachFile([&](const std::string& text) {
    const rcs_model::Nodes nodes = rcs_model::Parse(text, true, {});
    const std::string kept = rcs_model::Cut(text, nodes, rcs_model::FindAll(nodes, spec));
    const Edited edited = Edit(text, spec, true);
    // A file without line ends gets CR LF, regardless of the line ends in the removed button.
    if (edited.success && HasNoLoneReturn(text) && HasNoLoneReturn(kept) &&
        kept.find('\n') != std::string::npos) {
      ++compared;
      EXPECT_EQ(Edit(WithLineFeeds(text), spec, true).text, WithLineFeeds(edited.text));
    }
  });
  EXPECT_GT(compared, 1000);
}

TEST(ToolbarLaw, ExtraKindsChangeNothingInOrdinaryFiles) {
  const Spec spec = kestrune_tests::ExampleSpec();
  ForEachFile([&](const std::string& text) {
    for (const bool install : {true, false}) {
      const Edited plain = Edit(text, spec, install);
      const Edited extra = Edit(text, spec, install, kChange);
      EXPECT_EQ(plain.success, extra.success);
      EXPECT_EQ(plain.text, extra.text);
      EXPECT_EQ(plain.error, extra.error);
    }
  });
}

Spec WithOtherLook(Spec spec) {
  spec.image_path += "2";
  spec.description += " 2";
  return spec;
}

TEST(ToolbarLaw, EachReinstallationGrowsFileBySame) {
  const Spec spec = kestrune_tests::ExampleSpec();
  const Spec other = WithOtherLook(spec);
  int compared = 0;
  ForEachFile([&](const std::string& text) {
    Edited edited = Edit(text, spec, true);
    if (!edited.success) {
      return;
    }
    ++compared;
    std::vector<std::size_t> sizes;
    for (int round = 0; round < 4; ++round) {
      edited = Edit(Edit(edited.text, other, true).text, spec, true);
      ASSERT_TRUE(edited.success);
      sizes.push_back(edited.text.size());
    }
    EXPECT_EQ(sizes[2] - sizes[1], sizes[1] - sizes[0]);
    EXPECT_EQ(sizes[3] - sizes[2], sizes[1] - sizes[0]);
    EXPECT_LE(sizes[1] - sizes[0], 64U);
  });
  EXPECT_GT(compared, 1500);
}

/// Returns the number of links to our command. More than the button's two means that the user added
/// one.
std::size_t LinksToOurs(const std::string& text, const Spec& spec) {
  return rcs_model::FindAll(rcs_model::Parse(text, true, {}), spec).links.size();
}

TEST(ToolbarLaw, AReinstallationChangesImageAndDescriptionAlone) {
  const Spec spec = kestrune_tests::ExampleSpec();
  const Spec other = WithOtherLook(spec);
  int compared = 0;
  ForEachFile([&](const std::string& text) {
    const Edited installed = Edit(text, spec, true);
    if (!installed.success || LinksToOurs(installed.text, spec) != 2) {
      return;
    }
    ++compared;
    std::vector<std::string> expected = Tokens(installed.text);
    std::ranges::replace(expected, "'" + spec.image_path, "'" + other.image_path);
    std::ranges::replace(expected, "'" + spec.description, "'" + other.description);
    std::vector<std::string> tokens = Tokens(Edit(installed.text, other, true).text);
    // The button is rewritten at the end, so the order of the records differs.
    std::ranges::sort(expected);
    std::ranges::sort(tokens);
    EXPECT_EQ(tokens, expected);
  });
  EXPECT_GT(compared, 1000);
}

/// Returns toolbar definitions like a host's: several trees, with complete or truncated blocks.
std::string AnchorText(kestrune_tests::Dice& dice) {
  static constexpr std::array<std::string_view, 14> kPieces = {
      "Tree T ",        "Tree T\n",     "Tree T2 ",   "Link i PLID='a' End\n",
      "  Link i End",   "\nEnd\n",      "\nEndless ", "\r\n",
      " End",           "Link j End\n", "Tree s ",    "'",
      "Change c End\n", "\xEF\xBB\xBF"};
  std::string text;
  for (std::uint32_t i = dice.Below(14); i > 0; --i) {
    text += dice.Of(kPieces);
  }
  return text;
}

TEST(ToolbarLaw, HasAnchorAgreesWithANaiveOne) {
  int found = 0;
  for (std::uint64_t seed = 0; seed < 20000; ++seed) {
    kestrune_tests::Dice dice(seed);
    const std::string text = (seed % 2 == 0 ? "Tree T " : "") + AnchorText(dice);
    for (const std::string_view item : {"i", "T"}) {
      const bool expected = rcs_model::HasAnchor(text, "T", std::string(item), {});
      ASSERT_EQ(HasAnchor(text, "T", item), expected) << text;
      found += expected ? 1 : 0;
    }
    ASSERT_EQ(HasAnchor(text, "T", "i", kChange), rcs_model::HasAnchor(text, "T", "i", {"Change"}));
  }
  EXPECT_GT(found, 200);
}

TEST(ToolbarSamples, InstallAndRemoveWorkOnRealFiles) {
  const auto samples = kestrune_tests::ReadSamples("rcs", ".RCS");
  if (samples.empty()) {
    GTEST_SKIP() << "The real customization files are not here.";
  }
  const Spec spec = kestrune_tests::ExampleSpec();
  for (const auto& sample : samples) {
    SCOPED_TRACE(sample.name);
    const bool altered = sample.bytes.find("Change ") != std::string::npos;
    const Edited plain = Edit(sample.bytes, spec, true);
    EXPECT_EQ(plain.success, !altered);
    EXPECT_EQ(plain.error, altered ? L"Unknown RCS record: Change" : L"");

    const Edited installed = Edit(sample.bytes, spec, true, kChange);
    ASSERT_TRUE(installed.success);
    EXPECT_EQ(installed.text, rcs_model::Edit(sample.bytes, spec, true, {"Change"}).text);
    EXPECT_TRUE(IsSubsequence(sample.bytes, installed.text));
    EXPECT_EQ(Edit(installed.text, spec, true, kChange).text, installed.text);

    const Edited removed = Edit(installed.text, spec, false, kChange);
    ASSERT_TRUE(removed.success);
    EXPECT_EQ(removed.text, rcs_model::Edit(installed.text, spec, false, {"Change"}).text);
    EXPECT_TRUE(IsSubsequence(sample.bytes, removed.text));
    EXPECT_EQ(Edit(sample.bytes, spec, false, kChange).text, sample.bytes);

    std::vector<std::string> before = ForeignRecords(sample.bytes, spec, {"Change"});
    std::vector<std::string> after = ForeignRecords(removed.text, spec, {"Change"});
    WithoutCustomTree(before);
    WithoutCustomTree(after);
    EXPECT_EQ(before, after);
  }
}

TEST(ToolbarSamples, RealCustomTreeReceivesExactBytes) {
  const auto samples = kestrune_tests::ReadSamples("rcs", "DXP-minimal.RCS");
  if (samples.empty()) {
    GTEST_SKIP() << "The real customization files are not here.";
  }
  const std::string tree = "Tree PCBCustom Caption='[Custom]' TopLevel='True'  ";
  const std::string& bytes = samples.front().bytes;
  const std::size_t end = bytes.find(tree) + tree.size();
  ASSERT_EQ(bytes.compare(end, 3, "End"), 0);
  const Spec spec = {"C:\\K\\Kestrune.PrjScr", "C:\\K\\i.bmp", "Export PCB through Kestrune",
                     "TLPCBToolbar", "TBPCB_StandardToolbar760"};
  EXPECT_EQ(Edit(bytes, spec, true).text,
            bytes.substr(0, end) + "\r\n    Link KestruneCommandLink PLID='PLKestrune' End\r\n" +
                bytes.substr(end) +
                "PL PLKestrune Command='ScriptingSystem:RunScript' "
                "Params='ProjectName=C:\\K\\Kestrune.PrjScr|ProcName=Kestrune.pas>RunKestrune' "
                "Caption='Kestrune' Image='C:\\K\\i.bmp' "
                "Description='Export PCB through Kestrune' DefaultChecked=0 End\r\n"
                "Insertion KestruneToolbar TargetID='TLPCBToolbar' "
                "RefID0='TBPCB_StandardToolbar760'\r\n"
                "    Link KestruneToolbarLink PLID='PLKestrune' End\r\n"
                "End\r\n");
}

}  // namespace
}  // namespace altium_registration
