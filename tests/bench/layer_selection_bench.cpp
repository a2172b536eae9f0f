// Layer selection of a 64 MiB output job against reading, copying and writing a file of that size:
// the selection should take at most three times as long.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "export/prepare/layer_selection.h"

namespace {

constexpr std::size_t kJobSize = std::size_t{64} << 20;
constexpr char kSource[] = "layer_selection_bench.in";
constexpr char kTarget[] = "layer_selection_bench.out";

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

void Write(const char* path, const std::string& bytes) {
  const File file(std::fopen(path, "wb"));
  if (!file || std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
    std::abort();
  }
}

std::string Read(const char* path) {
  std::string bytes(kJobSize, '\0');
  const File file(std::fopen(path, "rb"));
  if (!file || std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
    std::abort();
  }
  return bytes;
}

std::string Field(std::size_t number) {
  const std::string n = std::to_string(number);
  return "Plot_V7_" + n + "=True|Plot_V7_" + n + "_name=Mechanical Layer " + n + "|PlotPair" + n +
         "_Plot=False|AddToAllPlots_V7_" + n + "=False|";
}

/// Returns an ordinary configuration line of some hundred fields in a job that is otherwise large.
std::string JobWithOrdinaryLine() {
  std::string job(kJobSize / 2, 'x');
  job += "\r\nConfiguration1_Item1=";
  for (std::size_t i = 0; i < 100; ++i) {
    job += Field(i);
  }
  job += "\r\n";
  return job.append(kJobSize - job.size(), 'y');
}

/// Returns a job of one single line, every field of which is looked up.
std::string JobOfOneLine() {
  std::string job = "Configuration1_Item1=";
  for (std::size_t i = 0; job.size() + 200 < kJobSize; ++i) {
    job += Field(i);
  }
  return job.append(kJobSize - job.size(), ' ');
}

kestrune::UsedLayers SomeLayers() {
  std::string manifest;
  for (int i = 0; i < 100; i += 2) {
    manifest += "LayerName=Mechanical Layer " + std::to_string(i) + "\nPlotKey=PlotPair" +
                std::to_string(i) + "_Plot\n";
  }
  return kestrune::ParseUsedLayers(manifest);
}

/// Measures the reference: one read, one copy in memory, one write.
void ReadCopyWrite(benchmark::State& state) {
  Write(kSource, JobWithOrdinaryLine());
  for (auto _ : state) {
    const std::string bytes = Read(kSource);
    std::string copy = bytes;
    benchmark::DoNotOptimize(copy.data());
    Write(kTarget, copy);
  }
  std::remove(kSource);
  std::remove(kTarget);
}
BENCHMARK(ReadCopyWrite)->Unit(benchmark::kMillisecond);

/// Measures the program's steps: one read, the selection, one write in three pieces.
void SelectInFile(benchmark::State& state, std::string (*make_job)()) {
  Write(kSource, make_job());
  const kestrune::UsedLayers used = SomeLayers();
  for (auto _ : state) {
    const std::string job = Read(kSource);
    const auto selection = kestrune::SelectLayers(job, used);
    const File file(std::fopen(kTarget, "wb"));
    std::fwrite(job.data(), 1, selection->begin, file.get());
    std::fwrite(selection->value.data(), 1, selection->value.size(), file.get());
    std::fwrite(job.data() + selection->end, 1, job.size() - selection->end, file.get());
  }
  std::remove(kSource);
  std::remove(kTarget);
}
BENCHMARK_CAPTURE(SelectInFile, OrdinaryLine, JobWithOrdinaryLine)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SelectInFile, OneLine, JobOfOneLine)->Unit(benchmark::kMillisecond);

/// Measures only the selection, in memory.
void SelectInMemory(benchmark::State& state, std::string (*make_job)()) {
  const std::string job = make_job();
  const kestrune::UsedLayers used = SomeLayers();
  for (auto _ : state) {
    benchmark::DoNotOptimize(kestrune::SelectLayers(job, used));
  }
}
BENCHMARK_CAPTURE(SelectInMemory, OrdinaryLine, JobWithOrdinaryLine)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SelectInMemory, OneLine, JobOfOneLine)->Unit(benchmark::kMillisecond);

}  // namespace
