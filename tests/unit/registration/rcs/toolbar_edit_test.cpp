#include "registration/rcs/toolbar_edit.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "tests/support/registration/rcs_edit.h"
#include "tests/support/registration/rcs_laws.h"

namespace altium_registration {
namespace {

const std::vector<std::string> kChange = {"Change"};

using kestrune_tests::EditText;
using kestrune_tests::ValidateText;

constexpr std::wstring_view kNotInstalled =
    L"Expected one unsuppressed Bridge command, custom link and toolbar placement.";

Spec PlainSpec() {
  return {"C:\\K\\Kestrune.PrjScr", "C:\\K\\image.bmp", "Export PCB through Kestrune",
          "TLPCBToolbar", "TBPCB_StandardToolbar760"};
}

/// Returns the line of the button's command in a file with CR LF.
std::string CommandLine(const std::string& identifier = "PLKestrune",
                        const std::string& description = "Export PCB through Kestrune") {
  return "PL " + identifier +
         " Command='ScriptingSystem:RunScript' "
         "Params='ProjectName=C:\\K\\Kestrune.PrjScr|ProcName=Kestrune.pas>RunKestrune' "
         "Caption='Kestrune' Image='C:\\K\\image.bmp' Description='" +
         description + "' DefaultChecked=0 End\r\n";
}

std::string CustomTree(const std::string& command = "PLKestrune") {
  return "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\n"
         "    Link KestruneCommandLink PLID='" +
         command +
         "' End\r\n"
         "End\r\n";
}

std::string Placement(const std::string& command = "PLKestrune",
                      const std::string& insertion = "KestruneToolbar") {
  return "Insertion " + insertion +
         " TargetID='TLPCBToolbar' RefID0='TBPCB_StandardToolbar760'\r\n"
         "    Link KestruneToolbarLink PLID='" +
         command +
         "' End\r\n"
         "End\r\n";
}

const std::string kButton = CustomTree() + CommandLine() + Placement();

/// Edits a text and checks the laws, which are slow for large texts and have no lead bytes.
kestrune_tests::Edited Edit(const std::string& text, const Spec& spec, bool install,
                            const std::vector<std::string>& extra = {}) {
  if (text.size() < kMaxRcsBytes / 2 && spec.is_lead_byte == nullptr) {
    EXPECT_EQ(rcs_laws::BrokenEditLaw(text, spec, install, extra), "") << text;
  }
  return EditText(text, spec, install, extra);
}

std::string Done(const std::string& text, const Spec& spec, bool install) {
  const kestrune_tests::Edited edited = Edit(text, spec, install);
  EXPECT_TRUE(edited.success) << text;
  EXPECT_EQ(edited.error, L"");
  return edited.text;
}

std::string Install(const std::string& text, const Spec& spec = PlainSpec()) {
  return Done(text, spec, true);
}

std::string Remove(const std::string& text, const Spec& spec = PlainSpec()) {
  return Done(text, spec, false);
}

std::wstring Refused(const std::string& text, bool install, const Spec& spec = PlainSpec()) {
  const kestrune_tests::Edited edited = Edit(text, spec, install);
  return edited.success ? L"" : edited.error;
}

std::wstring Invalid(const std::string& text, bool installed, const Spec& spec = PlainSpec()) {
  EXPECT_TRUE(rcs_laws::ValidatesAlike(text, spec, installed, {})) << text;
  std::wstring error;
  return ValidateText(text, spec, installed, error) ? L"" : error;
}

/// Returns whether the anchor is found; the naive search must agree.
bool FindsAnchor(const std::string& text, const std::string& tree, const std::string& item,
                 const std::vector<std::string>& extra = {}) {
  const bool found = HasAnchor(text, tree, item, extra);
  EXPECT_EQ(found, rcs_model::HasAnchor(text, tree, item, extra)) << text;
  return found;
}

std::string WithLineFeeds(std::string text) {
  std::erase(text, '\r');
  return text;
}

TEST(EditRcs, FreshInstallAppendsTreeCommandAndPlacement) {
  const std::string foreign = "PL _User1 Command='A:B' DefaultChecked=0  End\r\n";
  EXPECT_EQ(Install(foreign), foreign + kButton);
}

TEST(EditRcs, AnEmptyFileBecomesTheButtonAlone) {
  EXPECT_EQ(Install(""), kButton);
  EXPECT_EQ(Install(" "), " \r\n" + kButton);
  EXPECT_EQ(Install("\xEF\xBB\xBF"), "\xEF\xBB\xBF\r\n" + kButton);
}

TEST(EditRcs, MissingFinalLineBreakIsAdded) {
  EXPECT_EQ(Install("PL a End"), "PL a End\r\n" + kButton);
  EXPECT_EQ(Install("PL a End\r"), "PL a End\r\r\n" + kButton);
}

TEST(EditRcs, LinesEndAsTheyDoInFile) {
  EXPECT_EQ(Install("PL a End\n"), WithLineFeeds("PL a End\n" + kButton));
  EXPECT_EQ(Install("PL a End\nPL b End\r\nPL c End\n"),
            "PL a End\nPL b End\r\nPL c End\n" + kButton);
}

TEST(EditRcs, LineEndsComeFromTheRemainingText) {
  const std::string command =
      "PL x Command='scriptingsystem:runscript' Caption='\r\n' "
      "Params='ProjectName=C:/K/Kestrune.PrjScr|ProcName=Kestrune.pas>"
      "RunKestrune' End";
  EXPECT_EQ(Install(command + "\n"),
            WithLineFeeds("\n" + CustomTree("x") + CommandLine("x") + Placement("x")));
}

TEST(EditRcs, ACutCanJoinALineEnd) {
  const std::string command =
      "PL x Command='scriptingsystem:runscript' "
      "Params='ProjectName=C:/K/Kestrune.PrjScr|ProcName=Kestrune.pas>RunKestrune' End";
  EXPECT_EQ(Install("PL a End\r" + command + "\n"),
            "PL a End\r\n" + CustomTree("x") + CommandLine("x") + Placement("x"));
}

TEST(EditRcs, ExistingCustomTreeReceivesTheLinkLast) {
  const std::string head =
      "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\n"
      "    Link _User1 PLID='X' End\r\n";
  EXPECT_EQ(Install(head + "End\r\n"),
            head + "\r\n    Link KestruneCommandLink PLID='PLKestrune' End\r\nEnd\r\n" +
                CommandLine() + Placement());
  EXPECT_EQ(Install("Tree PCBCustom TopLevel='True'  End"),
            "Tree PCBCustom TopLevel='True'  \r\n"
            "    Link KestruneCommandLink PLID='PLKestrune' End\r\nEnd\r\n" +
                CommandLine() + Placement());
}

TEST(EditRcs, ChangedDescriptionOrImageRewritesTheButton) {
  std::string text = "PL _User7 A=1 End\r\n" + Install("");
  std::string::size_type at;
  while ((at = text.find("PLKestrune")) != std::string::npos) {
    text.replace(at, 10, "MyCommand");
  }
  EXPECT_EQ(Install(text), text);
  Spec spec = PlainSpec();
  spec.description = "Export PCB through Kestrune -> Viewer";
  const std::string rewritten = Install(text, spec);
  EXPECT_EQ(rewritten,
            "PL _User7 A=1 End\r\n"
            "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\n"
            "    \r\n"
            "\r\n"
            "    Link KestruneCommandLink PLID='MyCommand' End\r\n"
            "End\r\n"
            "\r\n"
            "\r\n" +
                CommandLine("MyCommand", spec.description) + Placement("MyCommand"));
  spec.image_path = "C:\\K\\other.png";
  EXPECT_NE(Install(rewritten, spec), rewritten);
  EXPECT_NE(Install(rewritten, spec).find("PL MyCommand"), std::string::npos);
}

TEST(EditRcs, EachReinstallationAddsTheSameSize) {
  Spec other = PlainSpec();
  other.description = "old";
  std::string text = Install("Tree PCBCustom Link a End End\n");
  std::array<std::size_t, 4> sizes = {};
  for (std::size_t& size : sizes) {
    text = Install(Install(text, other));
    size = text.size();
  }
  EXPECT_EQ(sizes[1] - sizes[0], 16U);
  EXPECT_EQ(sizes[3] - sizes[0], 48U);
}

TEST(EditRcs, PathsMatchIgnoringCaseAndSlashes) {
  std::string text = Install("");
  const std::string written = "C:\\K\\Kestrune.PrjScr|ProcName=Kestrune.pas>RunKestrune";
  text.replace(text.find(written), written.size(),
               "c:/k/kESTRUNE.PrjScr|procname=kestrune.pas>runkestrune");
  text.replace(text.find("ScriptingSystem:RunScript"), 25, "SCRIPTINGSYSTEM:runscript");
  EXPECT_EQ(Install(text), text);
  EXPECT_EQ(Invalid(text, true), L"");
}

TEST(EditRcs, NonAsciiBytesMatchExactly) {
  Spec spec = PlainSpec();
  spec.script_project_path = "C:\\\xCF\xF0\\Kestrune.PrjScr";
  const std::string text = Install("", spec);
  EXPECT_EQ(Install(text, spec), text);
  spec.script_project_path = "C:\\\xEF\xF0\\Kestrune.PrjScr";
  EXPECT_EQ(Invalid(text, true, spec), kNotInstalled);
}

TEST(EditRcs, QuotesInPathsAreDoubled) {
  Spec spec = PlainSpec();
  spec.script_project_path = "C:\\Users\\O'Brien\\Kestrune.PrjScr";
  const std::string text = Install("", spec);
  EXPECT_NE(text.find("O''Brien"), std::string::npos);
  EXPECT_EQ(Install(text, spec), text);
  EXPECT_EQ(Remove(text, spec).find("Kestrune.PrjScr"), std::string::npos);
}

TEST(EditRcs, UsedIdentifiersGetANumber) {
  const std::string text = Install(
      "PL KestruneToolbar End PL PLKestrune End PL PLKestrune_1 End PL PLKestrune_3 End\r\n"
      "Tree t Link KestruneToolbarLink End Link KestruneCommandLink End End\r\n");
  EXPECT_NE(text.find("PL PLKestrune_2 Command"), std::string::npos);
  EXPECT_NE(text.find("Insertion KestruneToolbar_1 TargetID"), std::string::npos);
  EXPECT_NE(text.find("Link KestruneToolbarLink_1 PLID='PLKestrune_2'"), std::string::npos);
  EXPECT_NE(text.find("Link KestruneCommandLink_1 PLID='PLKestrune_2'"), std::string::npos);
}

TEST(EditRcs, QuotedIdentifiersAreInUseToo) {
  EXPECT_NE(Install("PL 'KestruneToolbar' End\r\n").find("Insertion KestruneToolbar_1 "),
            std::string::npos);
}

TEST(EditRcs, KeptCommandIdentifierTakesPartInNumbering) {
  const std::string text = Install(CommandLine("KestruneToolbar"));
  EXPECT_NE(text.find("PL KestruneToolbar Command"), std::string::npos);
  EXPECT_NE(text.find("Insertion KestruneToolbar_1 TargetID"), std::string::npos);
}

TEST(EditRcs, IdentifiersOfCutRecordsAreFreeAgain) {
  const std::string text = "\r\n" + CommandLine() +
                           "Insertion KestruneToolbar TargetID='Other'\r\n"
                           "Link KestruneToolbarLink PLID='PLKestrune' End End\r\n";
  EXPECT_EQ(Install(text), "\r\n\r\n\r\n" + kButton);
}

TEST(EditRcs, TwoCommandsAreReplacedByOne) {
  const std::string text = CommandLine("A") + CommandLine("B") +
                           "Tree t\r\n  Link l PLID='A' End\r\n"
                           "  Link m PLID='B' End\r\nEnd\r\n";
  const std::string kept = "\r\n\r\nTree t\r\n  \r\n  \r\nEnd\r\n";
  EXPECT_EQ(Install(text), kept + kButton);
  EXPECT_EQ(Remove(text), kept);
  EXPECT_NE(Install(text + "PL PLKestrune End\r\n").find("PL PLKestrune_1 Command"),
            std::string::npos);
}

TEST(EditRcs, AllLinksToTheCommandAreRemoved) {
  const std::string text = "Tree Menu\r\n Tree Sub Link mine PLID='PLKestrune' End End\r\nEnd\r\n";
  EXPECT_EQ(Remove(text + kButton),
            "Tree Menu\r\n Tree Sub  End\r\nEnd\r\n"
            "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\n    \r\nEnd\r\n\r\n\r\n");
}

TEST(EditRcs, InsertionWithOtherLinkLosesOnlyOurs) {
  const std::string text = CommandLine() +
                           "Insertion i TargetID='T' Link a PLID='PLKestrune' End "
                           "Link b PLID='Other' End End\r\n";
  EXPECT_EQ(Remove(text), "\r\nInsertion i TargetID='T'  Link b PLID='Other' End End\r\n");
}

TEST(EditRcs, InsertionWithTreeOrEmptyIsForeign) {
  const std::string text = CommandLine() +
                           "Insertion i Link a PLID='PLKestrune' End Tree t "
                           "Link b PLID='PLKestrune' End End End\r\nInsertion j End\r\n";
  EXPECT_EQ(Remove(text), "\r\nInsertion i  Tree t  End End\r\nInsertion j End\r\n");
}

TEST(EditRcs, DeletionOfPlacedLinkGoesWithButton) {
  const std::string hidden =
      kButton + "Deletion d TargetID='TLPCBToolbar' DeleteID='KestruneToolbarLink' End\r\n";
  EXPECT_EQ(Invalid(hidden, true), kNotInstalled);
  EXPECT_EQ(Remove(hidden), Remove(kButton) + "\r\n");
  const std::string again = Install(hidden);
  EXPECT_EQ(again.find("Deletion"), std::string::npos);
  EXPECT_EQ(Invalid(again, true), L"");
}

TEST(EditRcs, UnrelatedDeletionIsForeign) {
  const std::string other =
      kButton +
      "Deletion d TargetID='TLOther' DeleteID='KestruneToolbarLink' End\r\n"
      "Deletion e TargetID='TLPCBToolbar' DeleteID='KestruneCommandLink' End\r\n"
      "Deletion f DeleteID='KestruneCommandLink' End\r\n"
      "Deletion g DeleteID='nobody' End\r\n";
  EXPECT_EQ(Invalid(other, true), L"");
  EXPECT_EQ(Install(other), other);
  EXPECT_NE(Remove(other).find("Deletion d"), std::string::npos);
  EXPECT_NE(Remove(other).find("Deletion e"), std::string::npos);
  EXPECT_NE(Remove(other).find("Deletion f"), std::string::npos);
  EXPECT_NE(Remove(other).find("Deletion g"), std::string::npos);
}

TEST(EditRcs, TargetsAreComparedByteByByte) {
  std::string text = kButton;
  text.replace(text.find("TLPCBToolbar"), 12, "tlpcbtoolbar");
  EXPECT_EQ(Invalid(text, true), kNotInstalled);
  EXPECT_EQ(Invalid(Install(text), true), L"");
}

TEST(EditRcs, RemovingFromFileWithoutCommandChangesNothing) {
  const std::string text =
      "PL a Command='ScriptingSystem:RunScript' Params='ProjectName=x' End "
      "Link l PLID='PLKestrune' End";
  EXPECT_EQ(Remove(text), text);
  EXPECT_EQ(Remove(""), "");
}

TEST(EditRcs, RemovingNeedsNoAnchor) {
  Spec spec = PlainSpec();
  spec.anchor_target.clear();
  spec.anchor_reference.clear();
  EXPECT_EQ(Remove(kButton, spec),
            "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\n    \r\nEnd\r\n\r\n\r\n");
}

TEST(EditRcs, InstallingNeedsTargetAndReference) {
  constexpr std::wstring_view kMessage =
      L"No validated toolbar anchor; manual registration required.";
  Spec spec = PlainSpec();
  spec.anchor_target.clear();
  EXPECT_EQ(Refused("", true, spec), kMessage);
  spec = PlainSpec();
  spec.anchor_reference.clear();
  EXPECT_EQ(Refused("", true, spec), kMessage);
  EXPECT_EQ(Refused(kButton, true, spec), kMessage);
}

TEST(EditRcs, UnsafePathsAreRefused) {
  for (const std::string path : {"", "|", "C:\\a|b", "C:\\a\rb", "C:\\a\nb"}) {
    Spec spec = PlainSpec();
    spec.script_project_path = path;
    EXPECT_EQ(Refused("PL a End", true, spec), L"Unsafe script project path.");
    EXPECT_EQ(Refused("PL a End", false, spec), L"Unsafe script project path.");
  }
}

bool IsShiftJisLeadByte(char byte) {
  const auto value = static_cast<unsigned char>(byte);
  return (value >= 0x81 && value <= 0x9F) || (value >= 0xE0 && value <= 0xFC);
}

TEST(EditRcs, ABarInsideACharacterIsSafe) {
  Spec spec = PlainSpec();
  spec.script_project_path = "C:\\\x83\x7C\\Kestrune.PrjScr";
  EXPECT_EQ(Refused("", true, spec), L"Unsafe script project path.");
  spec.is_lead_byte = IsShiftJisLeadByte;
  EXPECT_NE(Install("", spec).find("'ProjectName=C:\\\x83\x7C\\Kestrune.PrjScr|ProcName="),
            std::string::npos);
  for (const std::string path : {"C:\\\x83\x7C|", "C:\\|\x83\x7C", "C:\\\x83\x7C\n"}) {
    spec.script_project_path = path;
    EXPECT_EQ(Refused("", true, spec), L"Unsafe script project path.");
  }
}

TEST(EditRcs, TextPrecedesPathPrecedesAnchor) {
  Spec spec = PlainSpec();
  spec.script_project_path = "a|b";
  spec.anchor_target.clear();
  EXPECT_EQ(Refused("foo x", true, spec), L"Unknown RCS record: foo");
  EXPECT_EQ(Refused("", true, spec), L"Unsafe script project path.");
}

TEST(EditRcs, ParseMessagesComeThrough) {
  EXPECT_EQ(Refused("PL a 'b", true), L"Unclosed RCS quote.");
  EXPECT_EQ(Refused(std::string("P\0L", 3), false), L"Unsupported RCS size/encoding.");
  EXPECT_EQ(Refused("PL a End PL a End", true), L"Duplicate/invalid RCS identifier.");
}

TEST(EditRcs, CustomTreeBelowAnotherRecordIsRefused) {
  EXPECT_EQ(Refused("Tree x Tree PCBCustom End End\r\n", true),
            L"Duplicate/invalid RCS identifier.");
  EXPECT_EQ(Refused("PL PCBCustom End\r\n", true), L"Duplicate/invalid RCS identifier.");
}

TEST(EditRcs, FileAboveTheLimitIsRefused) {
  std::string text(kMaxRcsBytes, ' ');
  EXPECT_EQ(Refused(text, true), L"Unsupported RCS size/encoding.");
  EXPECT_EQ(Remove(text), text);
  text.resize(kMaxRcsBytes - kButton.size());
  text.back() = '\n';
  EXPECT_EQ(Install(text).size(), kMaxRcsBytes - static_cast<std::size_t>(std::count(
                                                     kButton.begin(), kButton.end(), '\r')));
}

TEST(EditRcs, ForeignUseOfNewNamesIsRefused) {
  EXPECT_EQ(
      Refused("Deletion d TargetID='TLPCBToolbar' DeleteID='KestruneToolbarLink' End\r\n", true),
      kNotInstalled);
  EXPECT_EQ(Refused("Tree PCBCustom Link l PLID='PLKestrune' End End\r\n", true), kNotInstalled);
}

TEST(EditRcs, IdentifierThatNeedsQuotesIsRefused) {
  std::string text = CommandLine("'my command'");
  EXPECT_EQ(Refused(text, true), L"Unexpected RCS child.");
  EXPECT_EQ(Remove(text), "\r\n");
}

TEST(EditRcs, QuotedTextsAroundACutStaySeparate) {
  std::string command = CommandLine();
  command.resize(command.size() - 2);
  EXPECT_EQ(Remove("Tree t A='x'" + command + "'B'='y' End\r\n"), "Tree t A='x' 'B'='y' End\r\n");
  EXPECT_EQ(Remove("Tree t A='x'" + command + " 'B'='y' End\r\n"), "Tree t A='x' 'B'='y' End\r\n");
  EXPECT_EQ(Remove("Tree t A='x'" + command + "'Link' l PLID='PLKestrune' End'B'='y' End\r\n"),
            "Tree t A='x' 'B'='y' End\r\n");
  EXPECT_EQ(Remove("Tree t A=x'Link' l PLID='PLKestrune' End'B'='y' " + command + " End\r\n"),
            "Tree t A=x'B'='y'  End\r\n");
}

TEST(EditRcs, TheFileGivenIsNeverChanged) {
  const std::string text = kButton + "PL a End";
  Rcs rcs;
  std::string edited;
  std::wstring error;
  ASSERT_TRUE(Rcs::Parse(std::string(text), {}, rcs, error));
  EXPECT_TRUE(EditRcs(rcs, PlainSpec(), false, edited, error));
  EXPECT_NE(edited, text);
  EXPECT_EQ(rcs.text(), text);
}

TEST(EditRcs, InvalidTextIsReturned) {
  const std::string full(kMaxRcsBytes, ' ');
  const std::string hidden =
      "Deletion d TargetID='TLPCBToolbar' DeleteID='KestruneToolbarLink' End";
  for (const std::string& text : {full, hidden}) {
    const kestrune_tests::Edited edited = EditText(text, PlainSpec(), true);
    EXPECT_FALSE(edited.success);
    EXPECT_EQ(edited.text, text + "\r\n" + kButton);
  }
}

TEST(EditRcs, ExtraRecordsStayWhereTheyAre) {
  const std::string change = "Change c TargetID='PLManRoute' Field0='Shortcut1' Value0=4  End\r\n";
  EXPECT_EQ(Refused(change, true), L"Unknown RCS record: Change");
  const kestrune_tests::Edited edited = Edit(change, PlainSpec(), true, kChange);
  EXPECT_TRUE(edited.success);
  EXPECT_EQ(edited.text, change + kButton);
  std::wstring error;
  EXPECT_TRUE(ValidateText(edited.text, PlainSpec(), true, error, kChange));
  EXPECT_FALSE(ValidateText(edited.text, PlainSpec(), true, error));
  const kestrune_tests::Edited removed = Edit(edited.text, PlainSpec(), false, kChange);
  EXPECT_TRUE(removed.success);
  EXPECT_TRUE(removed.text.starts_with(change));
}

TEST(ValidateRcs, WantsEachRecordExactlyOnce) {
  EXPECT_EQ(Invalid(kButton, true), L"");
  EXPECT_EQ(Invalid("", true), kNotInstalled);
  EXPECT_EQ(Invalid(CustomTree() + CommandLine(), true), kNotInstalled);
  EXPECT_EQ(Invalid(CommandLine() + Placement(), true), kNotInstalled);
  EXPECT_EQ(Invalid(CustomTree() + Placement(), true), kNotInstalled);
  EXPECT_EQ(Invalid(kButton + CommandLine("Second"), true), kNotInstalled);
  std::string second = Placement("PLKestrune", "Second");
  second.replace(second.find("KestruneToolbarLink"), 19, "SecondLink");
  EXPECT_EQ(Invalid(kButton + second, true), kNotInstalled);
  second.replace(second.find("TLPCBToolbar"), 12, "TLOther");
  EXPECT_EQ(Invalid(kButton + second, true), kNotInstalled);
}

TEST(ValidateRcs, RecordsMayHaveAnyOrder) {
  EXPECT_EQ(Invalid(Placement() + CommandLine() + CustomTree(), true), L"");
  EXPECT_EQ(Invalid(CommandLine() + Placement() + CustomTree(), true), L"");
}

TEST(ValidateRcs, NestedPlacementsCountOnce) {
  const std::string open = " TargetID='TLPCBToolbar' RefID0='TBPCB_StandardToolbar760' ";
  EXPECT_EQ(Invalid(CustomTree() + CommandLine() + "Insertion i" + open + "Insertion j" + open +
                        "Link l PLID='PLKestrune' End End End\r\n",
                    true),
            L"");
}

TEST(ValidateRcs, LinksElsewhereDoNotCount) {
  EXPECT_EQ(Invalid(kButton + "Tree Menu Link mine PLID='PLKestrune' End End\r\n", true), L"");
  EXPECT_EQ(Invalid(kButton + "Link mine PLID='PLKestrune' End\r\n", true), L"");
}

TEST(ValidateRcs, CustomLinkMayBeAtAnyDepth) {
  EXPECT_EQ(Invalid("Tree x Tree PCBCustom Tree y Link l PLID='PLKestrune' End End End End\r\n" +
                        CommandLine() + Placement(),
                    true),
            L"");
  EXPECT_EQ(Invalid("Insertion PCBCustom Tree y Link l PLID='PLKestrune' End End End\r\n" +
                        CommandLine() + Placement(),
                    true),
            kNotInstalled);
}

TEST(ValidateRcs, PlacedLinkMustBeDirectChild) {
  const std::string deep =
      "Insertion i TargetID='TLPCBToolbar' RefID0='TBPCB_StandardToolbar760' Tree t "
      "Link l PLID='PLKestrune' End End End\r\n";
  EXPECT_EQ(Invalid(CustomTree() + CommandLine() + deep, true), kNotInstalled);
}

TEST(ValidateRcs, TheReferenceMustMatchToo) {
  Spec spec = PlainSpec();
  spec.anchor_reference = "TBPCB_StandardToolbar761";
  EXPECT_EQ(Invalid(kButton, true, spec), kNotInstalled);
}

TEST(ValidateRcs, CommandNeedsExactProjectAndProcedure) {
  const auto replaced = [](const std::string& from, const std::string& to) {
    std::string text = kButton;
    text.replace(text.find(from), from.size(), to);
    return text;
  };
  for (const auto& text : {replaced("RunScript", "RunScript2"), replaced("C:\\K\\", "C:\\L\\"),
                           replaced("RunKestrune", "RunOther"), replaced("PL PLK", "Separator PLK"),
                           replaced("Params", "params")}) {
    EXPECT_EQ(Invalid(text, true), kNotInstalled);
    EXPECT_EQ(Invalid(text, false), L"");
  }
}

TEST(ValidateRcs, RemovedMeansNoCommandAndNothingElse) {
  EXPECT_EQ(Invalid("", false), L"");
  EXPECT_EQ(Invalid(CustomTree() + Placement(), false), L"");
  EXPECT_EQ(Invalid(CommandLine(), false), L"Bridge command remains.");
  EXPECT_EQ(Invalid("Tree t " + CommandLine() + "End", false), L"Bridge command remains.");
}

TEST(ValidateRcs, ParseMessagesComeThrough) {
  EXPECT_EQ(Invalid("PL", true), L"Malformed RCS nesting.");
  EXPECT_EQ(Invalid("PL a", false), L"Unterminated RCS record.");
}

TEST(HasAnchor, FindsTheItemInsideItsToolbar) {
  const std::string text =
      "nonsense 'open\r\n"
      "Tree TLPCBToolbar Caption='x'\r\n  Link a PLID='b' End\r\n"
      "  Tree Sub Link TBPCB_StandardToolbar760 PLID='c' End End\r\n"
      "End\r\nmore nonsense";
  EXPECT_TRUE(FindsAnchor(text, "TLPCBToolbar", "TBPCB_StandardToolbar760"));
  EXPECT_TRUE(FindsAnchor(text, "TLPCBToolbar", "Sub"));
  EXPECT_FALSE(FindsAnchor(text, "TLPCBToolbar", "TBPCB_StandardToolbar76"));
  EXPECT_FALSE(FindsAnchor(text, "TLPCBToolbar", "TLPCBToolbar"));
  EXPECT_FALSE(FindsAnchor(text, "Sub", "TBPCB_StandardToolbar760"));
  EXPECT_FALSE(FindsAnchor("", "T", "i"));
}

TEST(HasAnchor, TheToolbarMustBeginALine) {
  const std::string block = "Tree T A=1\nLink i End\nEnd";
  EXPECT_TRUE(FindsAnchor(block, "T", "i"));
  EXPECT_TRUE(FindsAnchor("x\n" + block, "T", "i"));
  EXPECT_FALSE(FindsAnchor(" " + block, "T", "i"));
  EXPECT_FALSE(FindsAnchor("x\r" + block, "T", "i"));
  EXPECT_FALSE(FindsAnchor("\xEF\xBB\xBF" + block, "T", "i"));
  EXPECT_TRUE(FindsAnchor("Tree Tree T \n" + block, "T", "i"));
}

TEST(HasAnchor, ABlankMustFollowTheIdentifier) {
  EXPECT_FALSE(FindsAnchor("Tree T\nLink i End\nEnd", "T", "i"));
  EXPECT_FALSE(FindsAnchor("Tree T\tLink i End\nEnd", "T", "i"));
  EXPECT_FALSE(FindsAnchor("Tree T2 Link i End\nEnd", "T", "i"));
}

TEST(HasAnchor, OnlyTheFirstMatchingToolbarIsTried) {
  const std::string empty = "Tree T \nEnd\n";
  const std::string good = "Tree T \nLink i End\nEnd\n";
  EXPECT_TRUE(FindsAnchor(good + empty, "T", "i"));
  EXPECT_FALSE(FindsAnchor(empty + good, "T", "i"));
}

TEST(HasAnchor, BlockEndsAtALineWithEnd) {
  EXPECT_TRUE(FindsAnchor("Tree T \n  Tree s \n  Link i End\n  End\nEnd", "T", "i"));
  EXPECT_FALSE(FindsAnchor("Tree T \nTree s \nEnd\nLink i End\nEnd", "T", "i"));
  EXPECT_TRUE(FindsAnchor("Tree T Link i End\nEndless", "T", "i"));
  EXPECT_FALSE(FindsAnchor("Tree T Link i End\n End", "T", "i"));
  EXPECT_FALSE(FindsAnchor("Tree T Link i End End", "T", "i"));
  EXPECT_FALSE(FindsAnchor("Tree T Link i End\nEn", "T", "i"));
}

TEST(HasAnchor, UnparsableBlockHasNoAnchor) {
  EXPECT_FALSE(FindsAnchor("Tree T Link i A='\nEnd", "T", "i"));
  EXPECT_FALSE(FindsAnchor("Tree T Link i End Foo f\nEnd", "T", "i"));
  EXPECT_FALSE(FindsAnchor("Tree T Link i End Change c End\nEnd", "T", "i"));
  EXPECT_TRUE(FindsAnchor("Tree T Link i End Change c End\nEnd", "T", "i", kChange));
  EXPECT_FALSE(FindsAnchor(std::string("Tree T Link i End \0\nEnd", 23), "T", "i"));
}

TEST(HasAnchor, TheItemMustOccurExactlyOnce) {
  EXPECT_FALSE(FindsAnchor("Tree T Link i End Tree s Link i End End\nEnd", "T", "i"));
  EXPECT_TRUE(FindsAnchor("Tree T Link i End Link j End Link j End\nEnd", "T", "i"));
  EXPECT_TRUE(FindsAnchor("Tree T Tree T End\nEnd", "T", "T"));
}

TEST(HasAnchor, RecordsAfterTheToolbarsEndAreOutside) {
  EXPECT_FALSE(FindsAnchor("Tree T A=1 End Tree i \nEnd", "T", "i"));
}

TEST(ToolbarAnchors, AreTriedOldHostsFirst) {
  ASSERT_EQ(kToolbarAnchors.size(), 2U);
  EXPECT_EQ(kToolbarAnchors[0].target, "TLPCBToolbar");
  EXPECT_EQ(kToolbarAnchors[0].reference, "TBPCB_StandardToolbar760");
  EXPECT_EQ(kToolbarAnchors[0].kind, ToolbarKind::Legacy);
  EXPECT_EQ(kToolbarAnchors[1].target, "TopBarPCB");
  EXPECT_EQ(kToolbarAnchors[1].reference, "TopBarPCB010");
  EXPECT_EQ(kToolbarAnchors[1].kind, ToolbarKind::ActiveBar);
}

}  // namespace
}  // namespace altium_registration
