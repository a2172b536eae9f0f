#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/global_projects.h"
#include "registration/rcs/toolbar_edit.h"

namespace altium_registration {
namespace {

Spec ExampleSpec() {
  return {"C:\\Users\\Designer\\AppData\\Local\\Kestrune\\Runtime\\Kestrune.PrjScr",
          "C:\\Users\\Designer\\AppData\\Local\\Kestrune\\Runtime\\odbpp-toolbar-legacy.bmp",
          "Export PCB through Kestrune", "TLPCBToolbar", "TBPCB_StandardToolbar760"};
}

/// Records like those of a user who has altered menus, toolbars and commands.
std::string RealisticFile(std::size_t size) {
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

std::string XmlText(std::string_view text) {
  std::string escaped;
  for (const char byte : text) {
    switch (byte) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += byte;
        break;
    }
  }
  return escaped;
}

/// The same records as XML: the kind is the element, the identifier the attribute "id". White
/// space between records is kept as the file has it.
std::string AsXml(const std::string& raw) {
  struct Token {
    std::string text;
    std::string blanks;
    bool bare;
  };
  std::vector<Token> tokens;
  for (std::size_t i = 0; i < raw.size();) {
    const std::size_t start = raw.find_first_not_of(" \t\r\n", i);
    if (start == std::string::npos) {
      break;
    }
    Token token{"", raw.substr(i, start - i), raw[start] != '\''};
    i = start;
    if (raw[i] == '=') {
      token.text = raw[i++];
    } else if (token.bare) {
      const std::size_t end = std::min(raw.find_first_of(" \t\r\n='", i), raw.size());
      token.text = raw.substr(i, end - i);
      i = end;
    } else {
      for (++i; raw[i] != '\'' || raw[i + 1] == '\''; ++i) {
        token.text += raw[i];
        i += raw[i] == '\'' ? 1U : 0U;
      }
      ++i;
    }
    tokens.push_back(token);
  }
  std::string xml = "<rcs>";
  std::vector<std::string> open;
  bool tag_open = false;
  const auto close_tag = [&] {
    xml += tag_open ? ">" : "";
    tag_open = false;
  };
  for (std::size_t i = 0; i < tokens.size();) {
    if (tokens[i].bare && tokens[i].text == "End") {
      if (tag_open) {
        xml += tokens[i].blanks + "/>";
        tag_open = false;
      } else {
        xml += tokens[i].blanks + "</" + open.back() + ">";
      }
      open.pop_back();
      ++i;
    } else if (i + 1 < tokens.size() && tokens[i + 1].text == "=" && tokens[i + 1].bare) {
      xml += tokens[i].blanks + tokens[i].text + "=\"" + XmlText(tokens[i + 2].text) + "\"";
      i += 3;
    } else {
      close_tag();
      xml +=
          tokens[i].blanks + "<" + tokens[i].text + " id=\"" + XmlText(tokens[i + 1].text) + "\"";
      open.push_back(tokens[i].text);
      tag_open = true;
      i += 2;
    }
  }
  return xml + "</rcs>";
}

void SetBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(bytes));
}

void ParseWhole(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    RcsDocument document;
    std::wstring error;
    if (!RcsDocument::Parse(text, {}, document, error)) {
      state.SkipWithError("refused");
    }
    benchmark::DoNotOptimize(document.records().data());
  }
  SetBytes(state, text.size());
}

void InstallWhole(benchmark::State& state, const std::string& text) {
  const Spec spec = ExampleSpec();
  for (auto _ : state) {
    std::string edited;
    std::wstring error;
    if (!EditRcs(text, spec, true, edited, error)) {
      state.SkipWithError("refused");
    }
    benchmark::DoNotOptimize(edited.data());
  }
  SetBytes(state, text.size());
}

std::size_t Kibibytes(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0)) * 1024;
}

void StrictParse(benchmark::State& state) {
  ParseWhole(state, RealisticFile(Kibibytes(state)));
}

/// pugixml reads the same bytes of records, its own copy of the text included, as ours needs none.
void PugixmlDom(benchmark::State& state) {
  const std::string raw = RealisticFile(Kibibytes(state));
  const std::string xml = AsXml(raw);
  for (auto _ : state) {
    pugi::xml_document document;
    if (!document.load_buffer(xml.data(), xml.size())) {
      state.SkipWithError("refused");
    }
    benchmark::DoNotOptimize(document.first_child());
  }
  SetBytes(state, raw.size());
}

/// The same without the copy: the text is made anew outside the measured time and parsed in place.
void PugixmlDomInPlace(benchmark::State& state) {
  const std::string raw = RealisticFile(Kibibytes(state));
  const std::string xml = AsXml(raw);
  std::string work;
  for (auto _ : state) {
    state.PauseTiming();
    work = xml;
    auto document = std::make_unique<pugi::xml_document>();
    state.ResumeTiming();
    if (!document->load_buffer_inplace(work.data(), work.size())) {
      state.SkipWithError("refused");
    }
    benchmark::DoNotOptimize(document->first_child());
    document.reset();
  }
  SetBytes(state, raw.size());
}

void Install(benchmark::State& state) {
  InstallWhole(state, RealisticFile(Kibibytes(state)));
}

/// The button is there with another description: records are cut out and written anew.
void Reinstall(benchmark::State& state) {
  Spec old = ExampleSpec();
  old.description = "old";
  std::string text;
  std::wstring error;
  EditRcs(RealisticFile(Kibibytes(state)), old, true, text, error);
  InstallWhole(state, text);
}

void Remove(benchmark::State& state) {
  const Spec spec = ExampleSpec();
  std::string text;
  std::wstring error;
  EditRcs(RealisticFile(Kibibytes(state)), spec, true, text, error);
  for (auto _ : state) {
    std::string edited;
    if (!EditRcs(text, spec, false, edited, error)) {
      state.SkipWithError("refused");
    }
    benchmark::DoNotOptimize(edited.data());
  }
  SetBytes(state, text.size());
}

std::string Parameters() {
  return Quote("ProjectName=" + ExampleSpec().script_project_path +
               "|ProcName=Kestrune.pas>RunKestrune");
}

/// Every second record is one of our commands, the others are links to them.
std::string ManyLinksToManyCommands(std::size_t size) {
  std::string text;
  for (std::uint32_t n = 0; text.size() + 400 < size; ++n) {
    const std::string number = std::to_string(n);
    text += "PL P" + number + " Command='ScriptingSystem:RunScript' Params=" + Parameters() +
            " End\nInsertion I" + number + " TargetID='T' Link L" + number + " PLID='P" + number +
            "' End End\nDeletion D" + number + " TargetID='T' DeleteID='L" + number + "' End\n";
  }
  return text;
}

std::string ManyQuotes(std::size_t size) {
  std::string text;
  for (std::uint32_t n = 0; text.size() + 200 < size; ++n) {
    text +=
        "PL 'a''''''" + std::to_string(n) + "' Command='''''''''''''''' Params='''''''''' End\n";
  }
  return text;
}

std::string DeepEverywhere(std::size_t size) {
  std::string text;
  for (std::uint32_t n = 0; text.size() + 1200 < size;) {
    for (std::uint32_t depth = 0; depth <= kMaxRcsDepth; ++depth) {
      text += "Tree t" + std::to_string(n++) + " A=1\n";
    }
    for (std::uint32_t depth = 0; depth <= kMaxRcsDepth; ++depth) {
      text += "End\n";
    }
  }
  return text;
}

std::string OneGiantToken(std::size_t size) {
  return "PL p A='" + std::string(size - 20, 'x') + "' End\n";
}

std::string OneTokenOfQuotes(std::size_t size) {
  return "PL p Command='" + std::string((size - 40) / 2 * 2, '\'') + "' End\n";
}

std::string ManyIdentifiers(std::size_t size) {
  std::string text;
  for (std::uint32_t n = 0; text.size() + 40 < size; ++n) {
    text += "PL " + std::to_string(n) + " End ";
  }
  return text;
}

/// The names that the button would take are taken, thousands of times.
std::string ManyTakenNames(std::size_t size) {
  std::string text = "PL PLKestrune End\n";
  for (std::uint32_t n = 1; text.size() + 60 < size; ++n) {
    text += "PL PLKestrune_" + std::to_string(n) + " End\n";
  }
  return text;
}

std::string ManyAttributes(std::size_t size) {
  std::string text = "PL p ";
  for (std::uint32_t n = 0; text.size() + 40 < size; ++n) {
    text += std::to_string(n) + "=1 ";
  }
  return text + "End\n";
}

std::string OnlyBlanks(std::size_t size) {
  return std::string(size - 1000, ' ');
}

using Shape = std::string (*)(std::size_t);

void ParseShape(benchmark::State& state, Shape shape) {
  ParseWhole(state, shape(Kibibytes(state)));
}

void InstallShape(benchmark::State& state, Shape shape) {
  InstallWhole(state, shape(Kibibytes(state)));
}

std::vector<RegistryValue> ManyValues(std::uint32_t count) {
  std::vector<RegistryValue> values;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t number = static_cast<std::uint32_t>(i * 7919ULL % count);
    values.push_back(
        {L"Item" + std::to_wstring(number), kRegistryText,
         TextData(L"C:\\Scripts\\Panel\\Panel" + std::to_wstring(number) + L".PrjScr")});
  }
  return values;
}

void Plan(benchmark::State& state) {
  const auto values = ManyValues(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    std::vector<RegistryValue> plan;
    std::wstring error;
    PlanGlobalProjects(values, L"C:\\Kestrune\\Kestrune.PrjScr", true, plan, error);
    benchmark::DoNotOptimize(plan.data());
  }
  state.SetComplexityN(state.range(0));
}

void CompareLists(benchmark::State& state) {
  const auto values = ManyValues(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(SameValues(values, values));
  }
  state.SetComplexityN(state.range(0));
}

#define REALISTIC_SIZES \
  ->Arg(64)->Arg(1024)->Arg(2048)->Arg(4096)->Arg(8191)->Unit(benchmark::kMillisecond)
BENCHMARK(StrictParse) REALISTIC_SIZES;
BENCHMARK(PugixmlDom) REALISTIC_SIZES;
BENCHMARK(PugixmlDomInPlace) REALISTIC_SIZES;
BENCHMARK(Install) REALISTIC_SIZES;
BENCHMARK(Reinstall) REALISTIC_SIZES;
BENCHMARK(Remove) REALISTIC_SIZES;

#define SHAPE_SIZES ->Arg(1024)->Arg(2048)->Arg(4096)->Arg(8190)->Unit(benchmark::kMillisecond)
#define BENCHMARK_SHAPE(shape)                             \
  BENCHMARK_CAPTURE(ParseShape, shape, shape) SHAPE_SIZES; \
  BENCHMARK_CAPTURE(InstallShape, shape, shape) SHAPE_SIZES
BENCHMARK_SHAPE(ManyLinksToManyCommands);
BENCHMARK_SHAPE(ManyQuotes);
BENCHMARK_SHAPE(DeepEverywhere);
BENCHMARK_SHAPE(OneGiantToken);
BENCHMARK_SHAPE(OneTokenOfQuotes);
BENCHMARK_SHAPE(ManyIdentifiers);
BENCHMARK_SHAPE(ManyTakenNames);
BENCHMARK_SHAPE(ManyAttributes);
BENCHMARK_SHAPE(OnlyBlanks);

BENCHMARK(Plan)
    ->RangeMultiplier(10)
    ->Range(100, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);
BENCHMARK(CompareLists)
    ->RangeMultiplier(10)
    ->Range(100, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);

}  // namespace
}  // namespace altium_registration
