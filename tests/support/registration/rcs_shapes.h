#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/toolbar_edit.h"
#include "tests/support/registration/dice.h"

/// Makes customization files of a given size: a typical one, and shapes that are slow for code that
/// reads any part more than once.
namespace kestrune_tests {

/// Returns the button for the shapes.
inline altium_registration::Spec BenchSpec() {
  return {"C:\\Users\\Designer\\AppData\\Local\\Kestrune\\Runtime\\Kestrune.PrjScr",
          "C:\\Users\\Designer\\AppData\\Local\\Kestrune\\Runtime\\odbpp-toolbar-legacy.bmp",
          "Export PCB through Kestrune", "TLPCBToolbar", "TBPCB_StandardToolbar760"};
}

/// Returns records like those of a user who has altered menus, toolbars and commands.
inline std::string RealisticFile(std::size_t size) {
  std::string text =
      "Tree PCBCustom Caption='[Custom]' TopLevel='True'  End\r\n"
      "Tree SchCustom Caption='[Custom]' TopLevel='True'  End\r\n";
  for (std::uint32_t n = 0; text.size() + 1000 < size; n += 8) {
    const auto user = [n](std::uint32_t i) { return "_User" + std::to_string(n + i); };
    text += "PL " + user(0) +
            " Command='PCB:Select' Params='Scope = Layer' Caption='All on La&yer' "
            "Description='Select All on Current Layer' DefaultChecked=0  End\r\n";
    text += "PL " + user(1) +
            " Command='ScriptingSystem:RunScript' Params='ProjectName=C:\\Scripts\\Panel\\Panel" +
            std::to_string(n) +
            ".PrjScr|ProcName=Panel.pas>Main' Caption='It''s a script' DefaultChecked=0  End\r\n";
    text += "Insertion " + user(2) +
            " TargetID='TLFilter' InsertType='After' RefID0='TBPCB_Filter50' \r\n    Link " +
            user(3) + " PLID='" + user(0) + "'      End\r\n    Link " + user(4) + " PLID='" +
            user(1) + "'      End\r\nEnd\r\n";
    text += "Deletion " + user(5) +
            " TargetID='TLSchLibDrawingTools' DeleteID='TBSchematic_SchLibDrawingTools160'  "
            "End\r\n";
    text += "Insertion " + user(6) + " TargetID='MNPCBMenu' RefID0='MNPCB_Help10' \r\n    Tree " +
            user(7) + " Caption='Scripts' Image='IEEEimage.bmp' Columns=7 \r\n";
    for (int i = 0; i < 3; ++i) {
      text += "        Link " + user(7) + "_" + std::to_string(i) +
              " PLID='PLSch:PlaceIEEEDotSymbol'          End\r\n";
    }
    text += "    End\r\nEnd\r\n";
  }
  return text;
}

/// Appends a text until the size is reached, each time with the next number in place of "#".
inline std::string Repeated(std::string text, std::string_view item, std::size_t size) {
  for (std::uint32_t n = 0; text.size() + 2 * item.size() + 64 < size; ++n) {
    for (const char byte : item) {
      text += byte == '#' ? std::to_string(n) : std::string(1, byte);
    }
  }
  return text;
}

/// Returns one command of ours without a placement.
inline std::string OurCommand(const std::string& name = "P") {
  return "PL " + name + " Command='ScriptingSystem:RunScript' Params=" +
         altium_registration::Quote("ProjectName=" + BenchSpec().script_project_path +
                                    "|ProcName=Kestrune.pas>RunKestrune") +
         " End\n";
}

/// Returns a long text with a doubled quote, as written in a file.
inline std::string LongQuoted(std::size_t size) {
  return "'" + std::string(size, 'x') + "'''";
}

inline std::string WithAttributes(const std::string& text, std::size_t size) {
  return Repeated(text, "#=1 ", size);
}

inline std::string WithLinks(const std::string& text, std::size_t size) {
  return Repeated(text, "Link L# PLID='P' End\n", size);
}

inline std::string WithDeletions(const std::string& text, std::size_t size) {
  return Repeated(text, "Deletion D# DeleteID='L' TargetID='x' End\n", size);
}

inline std::string ManyLinksToManyCommands(std::size_t size) {
  return Repeated("",
                  OurCommand("P#") +
                      "Insertion I# TargetID='T' Link L# PLID='P#' End End\n"
                      "Deletion D# TargetID='T' DeleteID='L#' End\n",
                  size);
}

inline std::string ManyQuotes(std::size_t size) {
  return Repeated("", "PL 'a''''''#' Command='''''''''''''''' Params='''''''''' End\n", size);
}

inline std::string DeepEverywhere(std::size_t size) {
  std::string block;
  for (std::uint32_t depth = 0; depth <= altium_registration::kMaxRcsDepth; ++depth) {
    block.insert(0, "Tree #_" + std::to_string(depth) + " A=1\n").append("End\n");
  }
  return Repeated("", block, size);
}

inline std::string OneGiantToken(std::size_t size) {
  return "PL p A='" + std::string(size - 20, 'x') + "' End\n";
}

inline std::string OneTokenOfQuotes(std::size_t size) {
  return "PL p Command='" + std::string((size - 40) / 2 * 2, '\'') + "' End\n";
}

inline std::string ManyIdentifiers(std::size_t size) {
  return Repeated("", "PL # End ", size);
}

/// Returns a file in which thousands of the button's possible names are taken.
inline std::string ManyTakenNames(std::size_t size) {
  return Repeated("PL PLKestrune End\n", "PL PLKestrune_# End\n", size);
}

inline std::string ManyAttributes(std::size_t size) {
  return WithAttributes("PL p ", size) + "End\n";
}

inline std::string OnlyBlanks(std::size_t size) {
  return std::string(size - 1000, ' ');
}

/// Returns an Insertion whose target is one long text with a doubled quote, and Deletions of its
/// link.
inline std::string LongTargetAndDeletions(std::size_t size) {
  return WithDeletions(
      OurCommand() + "Insertion I TargetID=" + LongQuoted(size / 2) + " Link L PLID='P' End End\n",
      size);
}

/// Returns a Tree whose identifier is one long text with a doubled quote, over links to our
/// command. The button is placed: without that, links in the custom tree are not counted.
inline std::string LongTreeOverLinks(std::size_t size) {
  const altium_registration::Spec spec = BenchSpec();
  return WithLinks(OurCommand() + "Insertion I TargetID='" + spec.anchor_target + "' RefID0='" +
                       spec.anchor_reference + "' Link L PLID='P' End End\nTree " +
                       LongQuoted(size / 2) + "\n",
                   size) +
         "End\n";
}

/// Returns an Insertion of very many attributes, the target last, and Deletions of its link.
inline std::string ManyAttributesAndDeletions(std::size_t size) {
  return WithDeletions(WithAttributes(OurCommand() + "Insertion I ", size / 2) +
                           "TargetID='y' Link L PLID='P' End End\n",
                       size);
}

/// Returns the same with links in a Tree below it, only one of them placed.
inline std::string ManyAttributesOverLinks(std::size_t size) {
  const std::string head = OurCommand() + "Tree PCBCustom Link C PLID='P' End End\nInsertion I ";
  return WithLinks(WithAttributes(head, size / 2) + "TargetID='y' Link L PLID='P' End Tree T\n",
                   size) +
         "End End\n";
}

/// Returns an Insertion of very many attributes that places many links, another placement after
/// each.
inline std::string ManyAttributesAndPlacedLinks(std::size_t size) {
  return Repeated(WithAttributes(OurCommand() + "Insertion I ", size / 2) + "TargetID='y'\n",
                  "Link L# PLID='P' End Insertion J# Link K# PLID='P' End End\n", size) +
         "End\n";
}

/// Returns records with one name more than are compared one by one.
inline std::string RecordsOfThirteenAttributes(std::size_t size) {
  return Repeated("", "PL # a=1 b=1 c=1 d=1 e=1 f=1 g=1 h=1 i=1 j=1 k=1 l=1 m=1 End\n", size);
}

/// Returns identifiers of sixteen bytes that all have the same hash for this seed: the third word
/// of each makes one factor of the last product zero.
inline std::vector<std::string> CollidingIdentifiers(std::uint64_t seed, std::size_t count) {
  std::vector<std::string> identifiers;
  for (std::uint32_t n = 0; identifiers.size() < count; ++n) {
    std::string text = std::to_string(10'000'000 + n) + "wordlast";
    const std::uint64_t first =
        static_cast<std::uint32_t>(seed) ^ altium_registration::LoadWord(text.data());
    const std::uint64_t second = (seed >> 32) ^ altium_registration::LoadWord(text.data() + 4);
    const auto word = static_cast<std::uint32_t>(seed ^ (first * second));
    std::memcpy(text.data() + 8, &word, sizeof word);
    if (text.find_first_of(std::string_view("' =\t\r\n\0", 7)) == std::string::npos) {
      identifiers.push_back(text);
    }
  }
  return identifiers;
}

struct RcsShape {
  const char* name = nullptr;
  std::string (*make)(std::size_t size) = nullptr;
};

/// The shapes; each parses strictly.
inline constexpr std::array kRcsShapes = std::to_array<RcsShape>({
    {"ManyLinksToManyCommands", ManyLinksToManyCommands},
    {"ManyQuotes", ManyQuotes},
    {"DeepEverywhere", DeepEverywhere},
    {"OneGiantToken", OneGiantToken},
    {"OneTokenOfQuotes", OneTokenOfQuotes},
    {"ManyIdentifiers", ManyIdentifiers},
    {"ManyTakenNames", ManyTakenNames},
    {"ManyAttributes", ManyAttributes},
    {"OnlyBlanks", OnlyBlanks},
    {"LongTargetAndDeletions", LongTargetAndDeletions},
    {"LongTreeOverLinks", LongTreeOverLinks},
    {"ManyAttributesAndDeletions", ManyAttributesAndDeletions},
    {"ManyAttributesOverLinks", ManyAttributesOverLinks},
    {"ManyAttributesAndPlacedLinks", ManyAttributesAndPlacedLinks},
    {"RecordsOfThirteenAttributes", RecordsOfThirteenAttributes},
});

/// Generates files that combine the features of the shapes above: long texts, doubled quotes, many
/// attributes, many links and Deletions, depth.
class RcsMixture {
 public:
  RcsMixture(std::uint64_t seed, std::size_t size) : dice_(seed), size_(size) {}

  std::string File() {
    text_ = OurCommand();
    while (text_.size() + kRoom < size_) {
      Record(0);
    }
    return text_;
  }

 private:
  static constexpr std::size_t kRoom = 4096;

  /// Returns up to half of the remaining size, so that a file may be almost a single text.
  std::size_t Share() {
    const std::size_t left = text_.size() + kRoom < size_ ? size_ - text_.size() - kRoom : 0;
    return left / (2 + dice_.Below(60));
  }

  std::string Name() { return "N" + std::to_string(counter_++); }

  std::string Value() {
    std::string value = dice_.Chance(20) ? std::string(Share(), 'x') : "x";
    if (dice_.Chance(30)) {
      value += dice_.Chance(50) ? std::string(Share() / 2, '\'') : "'";
    }
    return altium_registration::Quote(value);
  }

  std::string LinkOfOurs() {
    std::string name = Name();
    text_ += "Link " + name + " PLID=P End\n";
    return name;
  }

  void Attributes() {
    if (dice_.Chance(20)) {
      text_ = WithAttributes(text_, text_.size() + Share());
    }
    if (dice_.Chance(50)) {
      text_ += " TargetID=" + Value() + " RefID0=" + Value() + " ";
    }
  }

  std::string Children(std::uint32_t depth) {
    std::string link = "x";
    const std::size_t end = text_.size() + Share();
    do {
      if (dice_.Chance(70)) {
        link = LinkOfOurs();
      } else if (depth + 2 < altium_registration::kMaxRcsDepth) {
        Record(depth + 1);
      }
    } while (text_.size() < end);
    return link;
  }

  void Record(std::uint32_t depth) {
    const std::string name = Name();
    text_ += dice_.Chance(60) ? "Insertion " : "Tree ";
    text_ += dice_.Chance(20) ? Value().insert(1, name) : name;
    text_ += " ";
    Attributes();
    const std::string link = Children(depth);
    text_ += "End\n";
    const std::size_t end = text_.size() + (dice_.Chance(40) && depth == 0 ? Share() : 0);
    while (text_.size() < end) {
      text_ += "Deletion " + Name() + " DeleteID=" + link + " TargetID=x End\n";
    }
  }

  Dice dice_;
  std::size_t size_;
  std::string text_;
  std::uint32_t counter_ = 0;
};

}  // namespace kestrune_tests
