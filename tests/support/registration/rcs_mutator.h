#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/registration/dice.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max);

/// Mutates customization files as a host, a user or an incomplete write would: whole records,
/// tokens and blanks, besides single bytes.
class RcsMutator {
 public:
  RcsMutator(std::string text, unsigned seed) : text_(std::move(text)), dice_(seed) {}

  std::string Run() {
    for (std::uint32_t i = 1 + dice_.Below(3); i > 0; --i) {
      Step();
    }
    return std::move(text_);
  }

 private:
  struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
  };

  static constexpr std::array<std::string_view, 26> kRecords = {
      "Tree PCBCustom Caption='[Custom]' TopLevel='True' End\r\n",
      "Tree PCBCustom\n    Link L PLID='PLKestrune' End\nEnd\n",
      "PL PLKestrune Command='ScriptingSystem:RunScript' Params='ProjectName=C:\\K\\a.PrjScr|"
      "ProcName=Kestrune.pas>RunKestrune' Image='i.bmp' Description='d' End\r\n",
      "PL P2 Command=scriptingsystem:runscript Params='projectname=c:/k/A.PrjScr|"
      "procname=kestrune.pas>runkestrune' End ",
      "Insertion KestruneToolbar TargetID='T' RefID0='R'\r\n    Link KestruneToolbarLink "
      "PLID='PLKestrune' End\r\nEnd\r\n",
      "Insertion I TargetID=T RefID0=R Link M PLID=P2 End End ",
      "Deletion D TargetID='T' DeleteID='KestruneToolbarLink' End\n",
      "Link KestruneCommandLink PLID='PLKestrune' End ",
      "Link N PLID=P2 End",
      "Separator S End",
      "Change C Field0='Shortcut1' Value0=4  End\r\n",
      "Tree X A='x' Tree Y End B='y' End",
      "'Tree' 'Z' 'A'='x''y'B='z' End",
      "PL M 'a''1'=1 'a''2'=2 a3=3 a4=4 a5=5 a6=6 a7=7 a8=8 a9=9 b1=1 b2=2 b3=3 b4=4 'b''5'=5 End ",
      "End",
      "'",
      "''",
      "=",
      " ",
      "\r\n",
      "'End'",
      "\xEF\xBB\xBF",
      "Tree ",
      "\nEnd",
      "PLID='PLKestrune'",
      "DeleteID=M TargetID=T "};

  void Step() {
    switch (dice_.Below(8)) {
      case 0:
        text_.insert(Boundary(), dice_.Of(kRecords));
        break;
      case 1:
        Erase(Record());
        break;
      case 2:
        text_.insert(Boundary(), Part(Record()));
        break;
      case 3:
        Move(Record());
        break;
      case 4:
        Erase(Token());
        break;
      case 5:
        Replace(Token(), Part(Token()));
        break;
      case 6:
        SqueezeBlanks();
        break;
      default:
        MutateBytes();
        break;
    }
  }

  std::string Part(Range range) const { return text_.substr(range.begin, range.end - range.begin); }
  void Erase(Range range) { text_.erase(range.begin, range.end - range.begin); }
  void Replace(Range range, const std::string& text) {
    text_.replace(range.begin, range.end - range.begin, text);
  }

  void Move(Range range) {
    const std::string part = Part(range);
    Erase(range);
    text_.insert(Boundary(), part);
  }

  void SqueezeBlanks() {
    const std::size_t at = text_.find_first_of(" \t\r\n", Boundary());
    if (at != std::string::npos) {
      text_.erase(at, 1);
    }
  }

  void MutateBytes() {
    std::vector<std::uint8_t> bytes(text_.begin(), text_.end());
    const std::size_t size = bytes.size();
    bytes.resize(size + 32);
    bytes.resize(LLVMFuzzerMutate(bytes.data(), size, bytes.size()));
    text_.assign(bytes.begin(), bytes.end());
  }

  std::vector<Range> Tokens() const {
    std::vector<Range> tokens;
    for (std::size_t i = 0; i < text_.size();) {
      const std::size_t begin = text_.find_first_not_of(" \t\r\n", i);
      if (begin == std::string::npos) {
        break;
      }
      std::size_t end = begin + 1;
      if (text_[begin] == '\'') {
        end = std::min(text_.find('\'', end), text_.size() - 1) + 1;
      } else if (text_[begin] != '=') {
        end = std::min(text_.find_first_of(" \t\r\n='", end), text_.size());
      }
      tokens.push_back({begin, end});
      i = end;
    }
    return tokens;
  }

  std::size_t Boundary() {
    const std::vector<Range> tokens = Tokens();
    if (tokens.empty() || dice_.Chance(10)) {
      return text_.size();
    }
    const Range token = dice_.Of(tokens);
    return dice_.Chance(50) ? token.begin : token.end;
  }

  Range Token() {
    const std::vector<Range> tokens = Tokens();
    return tokens.empty() ? Range{} : dice_.Of(tokens);
  }

  /// Returns the range from some keyword to its End.
  Range Record() {
    static constexpr std::array<std::string_view, 7> kKinds = {
        "Tree", "PL", "Link", "Insertion", "Deletion", "Separator", "Change"};
    const std::vector<Range> tokens = Tokens();
    std::vector<Range> records;
    std::vector<std::size_t> open;
    for (const Range& token : tokens) {
      const std::string text = Part(token);
      if (text == "End" && !open.empty()) {
        records.push_back({open.back(), token.end});
        open.pop_back();
      } else if (std::find(kKinds.begin(), kKinds.end(), text) != kKinds.end()) {
        open.push_back(token.begin);
      }
    }
    return records.empty() ? Range{} : dice_.Of(records);
  }

  std::string text_;
  kestrune_tests::Dice dice_;
};

/// Mutates the text after the first `head` bytes of an input, which choose options.
inline std::size_t MutateRcsInput(std::uint8_t* data, std::size_t size, std::size_t max,
                                  unsigned seed, std::size_t head) {
  if (size <= head || seed % 16 == 0) {
    return LLVMFuzzerMutate(data, size, max);
  }
  const std::string text =
      RcsMutator(std::string(reinterpret_cast<const char*>(data) + head, size - head), seed).Run();
  const std::size_t kept = std::min(text.size(), max - head);
  std::memcpy(data + head, text.data(), kept);
  return head + kept;
}
