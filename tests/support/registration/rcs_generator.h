#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "registration/rcs/toolbar_edit.h"

/// Generates customization files from a seed: typical ones, and ones that occur only after an
/// incomplete write or an edit by hand.
namespace kestrune_tests {

/// Returns a button as the installer would describe it, with a folder that needs quoting.
inline altium_registration::Spec ExampleSpec() {
  return {"C:\\Users\\O'Brien\\AppData\\Local\\Kestrune\\Runtime\\Kestrune.PrjScr",
          "C:\\Users\\O'Brien\\AppData\\Local\\Kestrune\\Runtime\\odbpp-toolbar-legacy.bmp",
          "Export PCB through Kestrune", "TLPCBToolbar", "TBPCB_StandardToolbar760"};
}

/// Generates random numbers that are the same on every platform.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15U + 1) {}

  std::uint32_t Below(std::uint32_t limit) {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<std::uint32_t>((state_ >> 11) % limit);
  }
  bool Chance(std::uint32_t percent) { return Below(100) < percent; }
  template <typename List>
  const auto& Of(const List& list) {
    return list[Below(static_cast<std::uint32_t>(list.size()))];
  }

 private:
  std::uint64_t state_;
};

class RcsGenerator {
 public:
  explicit RcsGenerator(std::uint64_t seed)
      : dice_(seed), spec_(ExampleSpec()), line_(dice_.Chance(70) ? "\r\n" : "\n") {
    wild_ = dice_.Chance(40);
    nested_custom_ = dice_.Chance(5);
  }

  std::string File() {
    if (dice_.Chance(3)) {
      return dice_.Chance(50) ? "" : std::string("\xEF\xBB\xBF") + (dice_.Chance(50) ? " " : "");
    }
    text_ = dice_.Chance(10) ? "\xEF\xBB\xBF" : "";
    const std::uint32_t records = 1 + dice_.Below(12);
    for (std::uint32_t i = 0; i < records; ++i) {
      Top();
    }
    if (dice_.Chance(20)) {
      while (!text_.empty() && (text_.back() == '\n' || text_.back() == '\r')) {
        text_.pop_back();
      }
    }
    return text_;
  }

  /// Returns a file with some bytes changed, dropped or doubled.
  std::string BrokenFile() {
    std::string text = File();
    for (std::uint32_t i = 0; i <= dice_.Below(3) && !text.empty(); ++i) {
      const std::size_t at = dice_.Below(static_cast<std::uint32_t>(text.size()));
      switch (dice_.Below(4)) {
        case 0:
          text[at] = dice_.Of(std::string("'= \nE\xA0\x0B|P"));
          break;
        case 1:
          text.erase(at, 1 + dice_.Below(8));
          break;
        case 2:
          text.insert(at, dice_.Of(kFragments));
          break;
        default:
          text.insert(at, text.substr(dice_.Below(static_cast<std::uint32_t>(text.size())),
                                      dice_.Below(60)));
          break;
      }
    }
    return text;
  }

 private:
  static constexpr std::array<std::string_view, 12> kFragments = {"End",          "'",
                                                                  "''",           "=",
                                                                  " End ",        "Tree PCBCustom ",
                                                                  "'End'",        "\r\n",
                                                                  "PL",           "Link x PLID='",
                                                                  "\xEF\xBB\xBF", "Change c End"};

  std::string Blank() {
    if (!wild_) {
      return " ";
    }
    static constexpr std::array<std::string_view, 6> kBlanks = {" ",  "  ",   "\t",
                                                                "\n", "\r\n", "\r"};
    return std::string(dice_.Of(kBlanks));
  }

  std::string Identifier() { return "_User" + std::to_string(counter_++); }

  std::string Value(const std::string& value) {
    const bool bare = !value.empty() && value.find_first_of(" \t\r\n='") == std::string::npos;
    return bare && wild_ && dice_.Chance(30) ? value : altium_registration::Quote(value);
  }

  void Put(const std::string& piece) { text_ += piece; }

  void Attribute(const std::string& name, const std::string& value) {
    const bool quoted = !text_.empty() && text_.back() == '\'';
    Put(wild_ && quoted && dice_.Chance(30) ? "" : Blank());
    Put(name);
    if (wild_ && dice_.Chance(10)) {
      Put(Blank() + "=" + Blank());
    } else {
      Put("=");
    }
    Put(Value(value));
  }

  void Open(const std::string& kind, const std::string& identifier) {
    Put((wild_ && dice_.Chance(5) ? "'" + kind + "'" : kind) + Blank() +
        (wild_ && dice_.Chance(10) ? "'" + identifier + "'" : identifier));
  }

  void Close() { Put((dice_.Chance(30) ? line_ : Blank()) + "End" + After()); }

  std::string After() { return wild_ && dice_.Chance(30) ? Blank() : line_; }

  /// Appends more attributes than are compared one by one, with doubled quotes in their names; in
  /// an invalid file one may occur twice.
  void ManyAttributes() {
    const std::uint32_t count = 13 + dice_.Below(8);
    for (std::uint32_t i = 0; i < count; ++i) {
      Attribute(NameWithQuote(i), "v");
    }
    if (wild_ && dice_.Chance(5)) {
      Attribute(NameWithQuote(dice_.Below(count)), "again");
    }
  }

  static std::string NameWithQuote(std::uint32_t number) {
    const std::string name = "it" + std::string(number % 3, '\'') + "s" + std::to_string(number);
    return number % 3 == 0 ? name : altium_registration::Quote(name);
  }

  void Foreign(std::uint32_t depth) {
    static constexpr std::array<std::string_view, 8> kTexts = {
        "PCB:Select", "It's", "", "Scope = Layer", "End", "a\r\nb", "\xCF\xF0\xE8", "PLKestrune2"};
    const std::uint32_t what = dice_.Below(depth < 3 ? 7 : 4);
    static constexpr std::array<std::string_view, 7> kKinds = {
        "PL", "Link", "Deletion", "Separator", "Tree", "Insertion", "Tree"};
    Open(std::string(kKinds[what]), wild_ && dice_.Chance(5) ? TakenName() : Identifier());
    for (std::uint32_t i = dice_.Below(4); i > 0; --i) {
      Attribute(std::string("A") + std::to_string(i), std::string(dice_.Of(kTexts)));
    }
    if (dice_.Chance(4)) {
      ManyAttributes();
    }
    if (what == 1) {
      Attribute("PLID", dice_.Chance(20) ? "PLOther" : Identifier());
    }
    if (what == 5) {
      Attribute("TargetID", dice_.Chance(50) ? spec_.anchor_target : "TLFilter");
    }
    if (what >= 4) {
      Put(line_);
      for (std::uint32_t i = dice_.Below(4); i > 0; --i) {
        Any(depth + 1);
      }
    }
    Close();
  }

  /// Returns an identifier that the button would take.
  std::string TakenName() {
    static constexpr std::array<std::string_view, 5> kNames = {
        "KestruneToolbar", "KestruneToolbarLink", "KestruneCommandLink", "PLKestrune",
        "KestruneToolbar_1"};
    const std::size_t which = taken_++;
    return which < kNames.size() ? std::string(kNames[which]) : Identifier();
  }

  void Command() {
    const std::string name = commands_.empty() && dice_.Chance(60) ? "PLKestrune" : Identifier();
    commands_.push_back(name);
    if (name == "PLKestrune") {
      taken_ = 4;
    }
    std::string path = spec_.script_project_path;
    if (dice_.Chance(30)) {
      for (char& byte : path) {
        byte = byte == '\\' ? '/' : byte;
      }
    }
    Open("PL", name);
    Attribute("Command",
              dice_.Chance(30) ? "scriptingSYSTEM:RunScript" : "ScriptingSystem:RunScript");
    Attribute("Params", "ProjectName=" + path + "|ProcName=kestrune.pas>RunKestrune");
    Attribute("Image", dice_.Chance(50) ? spec_.image_path : "old.bmp");
    Attribute("Description", dice_.Chance(70) ? spec_.description : "old");
    Close();
  }

  std::string LinkToCommand() {
    const std::string identifier = Identifier();
    Open("Link", identifier);
    Attribute("PLID", commands_.empty() ? std::string("PLKestrune") : dice_.Of(commands_));
    Close();
    return identifier;
  }

  void Placement(std::uint32_t depth) {
    Open("Insertion", Identifier());
    const std::string target = dice_.Chance(70) ? spec_.anchor_target : "TLFilter";
    if (dice_.Chance(90)) {
      Attribute("TargetID", target);
    }
    Attribute("RefID0", dice_.Chance(80) ? spec_.anchor_reference : "TBPCB_Filter50");
    Put(line_);
    std::vector<std::string> links = {LinkToCommand()};
    if (dice_.Chance(20)) {
      links.push_back(LinkToCommand());
    }
    if (dice_.Chance(20)) {
      Any(depth + 1);
    }
    Close();
    if (dice_.Chance(25)) {
      Open("Deletion", Identifier());
      Attribute("TargetID", dice_.Chance(80) ? target : "TLFilter");
      Attribute("DeleteID", dice_.Of(links));
      Close();
    }
  }

  void Any(std::uint32_t depth) {
    if (dice_.Chance(85)) {
      Foreign(depth);
    } else if (dice_.Chance(30)) {
      Command();
    } else if (dice_.Chance(50)) {
      LinkToCommand();
    } else {
      Placement(depth);
    }
  }

  void Top() {
    const std::uint32_t what = dice_.Below(20);
    if (what < 3 && !custom_) {
      custom_ = true;
      if (nested_custom_) {
        Open("Tree", Identifier());
        Put(line_);
      }
      Open("Tree", "PCBCustom");
      Attribute("Caption", "[Custom]");
      if (dice_.Chance(50)) {
        Put(line_);
        Any(1);
      }
      Close();
      if (nested_custom_) {
        Close();
      }
    } else if (what < 6) {
      Command();
    } else if (what < 9) {
      Placement(0);
    } else {
      Any(0);
    }
  }

  Dice dice_;
  altium_registration::Spec spec_;
  std::string line_;
  std::string text_;
  bool wild_ = false;
  bool nested_custom_ = false;
  bool custom_ = false;
  std::uint32_t counter_ = 0;
  std::size_t taken_ = 0;
  std::vector<std::string> commands_;
};

}  // namespace kestrune_tests
