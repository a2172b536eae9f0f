#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "registration/rcs/toolbar_edit.h"

/// Customization files of a given size: one as users have them, and the shapes that would be slow
/// if anything were looked at more often than it occurs.
namespace kestrune_tests {

/// The button that the shapes are about.
inline altium_registration::Spec BenchSpec() {
  return {"C:\\Users\\Designer\\AppData\\Local\\Kestrune\\Runtime\\Kestrune.PrjScr",
          "C:\\Users\\Designer\\AppData\\Local\\Kestrune\\Runtime\\odbpp-toolbar-legacy.bmp",
          "Export PCB through Kestrune", "TLPCBToolbar", "TBPCB_StandardToolbar760"};
}

/// Records like those of a user who has altered menus, toolbars and commands.
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

inline std::string Parameters() {
  return altium_registration::Quote("ProjectName=" + BenchSpec().script_project_path +
                                    "|ProcName=Kestrune.pas>RunKestrune");
}

/// Every second record is one of our commands, the others are links to them.
inline std::string ManyLinksToManyCommands(std::size_t size) {
  std::string text;
  for (std::uint32_t n = 0; text.size() + 400 < size; ++n) {
    const std::string number = std::to_string(n);
    text += "PL P" + number + " Command='ScriptingSystem:RunScript' Params=" + Parameters() +
            " End\nInsertion I" + number + " TargetID='T' Link L" + number + " PLID='P" + number +
            "' End End\nDeletion D" + number + " TargetID='T' DeleteID='L" + number + "' End\n";
  }
  return text;
}

inline std::string ManyQuotes(std::size_t size) {
  std::string text;
  for (std::uint32_t n = 0; text.size() + 200 < size; ++n) {
    text +=
        "PL 'a''''''" + std::to_string(n) + "' Command='''''''''''''''' Params='''''''''' End\n";
  }
  return text;
}

inline std::string DeepEverywhere(std::size_t size) {
  std::string text;
  for (std::uint32_t n = 0; text.size() + 1200 < size;) {
    for (std::uint32_t depth = 0; depth <= altium_registration::kMaxRcsDepth; ++depth) {
      text += "Tree t" + std::to_string(n++) + " A=1\n";
    }
    for (std::uint32_t depth = 0; depth <= altium_registration::kMaxRcsDepth; ++depth) {
      text += "End\n";
    }
  }
  return text;
}

inline std::string OneGiantToken(std::size_t size) {
  return "PL p A='" + std::string(size - 20, 'x') + "' End\n";
}

inline std::string OneTokenOfQuotes(std::size_t size) {
  return "PL p Command='" + std::string((size - 40) / 2 * 2, '\'') + "' End\n";
}

inline std::string ManyIdentifiers(std::size_t size) {
  std::string text;
  for (std::uint32_t n = 0; text.size() + 40 < size; ++n) {
    text += "PL " + std::to_string(n) + " End ";
  }
  return text;
}

/// The names that the button would take are taken, thousands of times.
inline std::string ManyTakenNames(std::size_t size) {
  std::string text = "PL PLKestrune End\n";
  for (std::uint32_t n = 1; text.size() + 60 < size; ++n) {
    text += "PL PLKestrune_" + std::to_string(n) + " End\n";
  }
  return text;
}

inline std::string ManyAttributes(std::size_t size) {
  std::string text = "PL p ";
  for (std::uint32_t n = 0; text.size() + 40 < size; ++n) {
    text += std::to_string(n) + "=1 ";
  }
  return text + "End\n";
}

inline std::string OnlyBlanks(std::size_t size) {
  return std::string(size - 1000, ' ');
}

}  // namespace kestrune_tests
