#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "registration/transaction/global_projects.h"
#include "tests/support/registration/rcs_edit.h"
#include "tests/support/registration/rcs_model.h"
#include "tests/support/registration/rcs_shapes.h"

namespace altium_registration {
namespace {

using kestrune_tests::BenchSpec;
using kestrune_tests::RealisticFile;

std::string XmlText(std::string text) {
  for (const auto& [byte, escape] :
       {std::pair("&", "&amp;"), {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"}}) {
    text = rcs_model::Replaced(std::move(text), byte, escape);
  }
  return text;
}

/// Returns the same records as XML: the kind is the element, the identifier the attribute "id".
/// White space between records is kept as the file has it.
std::string AsXml(const std::string& raw) {
  const std::vector<rcs_model::Token> tokens = rcs_model::Tokens(raw);
  const auto is_bare = [&](std::size_t at, std::string_view text) {
    return at < tokens.size() && !tokens[at].quoted && tokens[at].text == text;
  };
  const auto blanks = [&](std::size_t at) {
    const std::size_t from = at == 0 ? 0 : tokens[at - 1].end;
    return raw.substr(from, tokens[at].start - from);
  };
  std::string xml = "<rcs>";
  std::vector<std::string> open;
  bool tag_open = false;
  for (std::size_t i = 0; i < tokens.size();) {
    if (is_bare(i, "End")) {
      xml += blanks(i) + (tag_open ? "/>" : "</" + open.back() + ">");
      tag_open = false;
      open.pop_back();
      ++i;
    } else if (is_bare(i + 1, "=")) {
      xml += blanks(i) + tokens[i].text + "=\"" + XmlText(tokens[i + 2].text) + "\"";
      i += 3;
    } else {
      xml += tag_open ? ">" : "";
      xml += blanks(i) + "<" + tokens[i].text + " id=\"" + XmlText(tokens[i + 1].text) + "\"";
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
  std::string own = text;
  for (auto _ : state) {
    Rcs rcs;
    std::wstring error;
    if (!Rcs::Parse(std::move(own), {}, rcs, error)) {
      state.SkipWithError("refused");
    }
    benchmark::DoNotOptimize(rcs.nodes().data());
    own = std::move(rcs).TakeText();
  }
  SetBytes(state, text.size());
}

/// Measures all steps from the file's text to the new one.
void EditWhole(benchmark::State& state, const std::string& text, bool install) {
  const Spec spec = BenchSpec();
  std::string own = text;
  for (auto _ : state) {
    Rcs rcs;
    std::string edited;
    std::wstring error;
    if (!Rcs::Parse(std::move(own), {}, rcs, error) ||
        !EditRcs(rcs, spec, install, edited, error)) {
      state.SkipWithError("refused");
    }
    benchmark::DoNotOptimize(edited.data());
    own = std::move(rcs).TakeText();
  }
  SetBytes(state, text.size());
}

std::size_t Kibibytes(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0)) * 1024;
}

void StrictParse(benchmark::State& state) {
  ParseWhole(state, RealisticFile(Kibibytes(state)));
}

/// Measures pugixml with the same records, including its copy of the text, which our parser does
/// not need.
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

/// Measures the same without the copy: the text is copied outside the measured time and parsed in
/// place.
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
  EditWhole(state, RealisticFile(Kibibytes(state)), true);
}

/// Measures replacing a button that has another description.
void Reinstall(benchmark::State& state) {
  Spec old = BenchSpec();
  old.description = "old";
  EditWhole(state, kestrune_tests::EditText(RealisticFile(Kibibytes(state)), old, true).text, true);
}

void Remove(benchmark::State& state) {
  const std::string text = RealisticFile(Kibibytes(state));
  EditWhole(state, kestrune_tests::EditText(text, BenchSpec(), true).text, false);
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

template <typename Measure>
void RegisterShape(const std::string& name, const Measure& measure) {
  benchmark::RegisterBenchmark(name.c_str(), measure)
      ->Arg(1024)
      ->Arg(2048)
      ->Arg(4096)
      ->Arg(8190)
      ->Unit(benchmark::kMillisecond);
}

const bool kShapesAreRegistered = [] {
  for (const kestrune_tests::RcsShape& shape : kestrune_tests::kRcsShapes) {
    const std::string name = shape.name;
    RegisterShape("ParseShape/" + name, [shape](benchmark::State& state) {
      ParseWhole(state, shape.make(Kibibytes(state)));
    });
    RegisterShape("InstallShape/" + name, [shape](benchmark::State& state) {
      EditWhole(state, shape.make(Kibibytes(state)), true);
    });
  }
  for (std::uint64_t seed = 1; seed <= 4; ++seed) {
    RegisterShape("InstallShape/Mixture" + std::to_string(seed), [seed](benchmark::State& state) {
      EditWhole(state, kestrune_tests::RcsMixture(seed, Kibibytes(state)).File(), true);
    });
  }
  return true;
}();

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
