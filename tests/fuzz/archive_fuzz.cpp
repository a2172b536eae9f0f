#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "common/failure/failure.h"
#include "export/inspect/inspection.h"
#include "export/inspect/matrix.h"
#include "export/inspect/zip/zip_directory.h"
#include "tests/support/export/zip_builder.h"
#include "tests/support/require_law.h"

namespace {

constexpr std::size_t kMostMemory = 16 * 1024 * 1024;

std::size_t taken = 0;
std::size_t most_taken = 0;

}  // namespace

void* operator new(std::size_t size) {
  void* const block = std::malloc(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  taken += malloc_usable_size(block);
  most_taken = std::max(most_taken, taken);
  return block;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* block) noexcept {
  taken -= block == nullptr ? 0 : malloc_usable_size(block);
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  operator delete(block);
}

namespace {

/// Inspects an archive under the laws.
void Inspect(std::string_view bytes) {
  const kestrune::ByteSource archive{
      bytes.size(), [&](std::uint64_t offset, std::size_t count) {
        Require(offset <= bytes.size() && count <= bytes.size() - offset);
        return std::string(bytes.substr(static_cast<std::size_t>(offset), count));
      }};
  const std::size_t before = taken;
  most_taken = taken;
  try {
    const kestrune::LayerList list = kestrune::InspectArchive(archive);
    const std::string text = kestrune::WriteLayerList(list);
    const auto rows = static_cast<std::ptrdiff_t>(list.layers.size());
    Require(std::count(text.begin(), text.end(), '\n') == rows + 3);
  } catch (const kestrune::Failure& failure) {
    Require(!failure.text.empty());
  }
  Require(most_taken - before <= kMostMemory);
}

/// Returns a matrix of 4 MiB with as many rows and as long values as are read.
std::string LargestMatrix() {
  std::string text;
  for (std::size_t row = 0; row < kestrune::kMostMatrixRows; ++row) {
    const std::string value(kestrune::kMostMatrixValue - 4, '%');
    const std::string number = std::to_string(1000 + row);
    text += "LAYER {\nTYPE=" + value + "\nNAME=" + value + number + "\nSTART_NAME=" + value +
            "\nEND_NAME=" + value + "\n}\n";
  }
  text.resize(kestrune::kMostMatrixBytes - 1000, '\n');
  return text;
}

/// Returns an archive with that matrix and as many entries as are read.
std::string LargestArchive() {
  std::vector<kestrune::ZipPart> parts = {{"odb/matrix/matrix", LargestMatrix(), 8}};
  for (std::uint64_t i = parts.size(); i < kestrune::kMostZipEntries; ++i) {
    parts.push_back({"odb/steps/" + std::to_string(i) + "/layers/a/features", ""});
  }
  kestrune::ZipEnd end;
  end.large = true;
  return kestrune::BuildZip(parts, end);
}

}  // namespace

/// Inspects the largest accepted archive before the first input, since no input is that large.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Inspect(LargestArchive());
  Require(most_taken > kMostMemory / 2);
  return 0;
}

/// Inspects the input as an archive. Only ranges within it may be read, at most 16 MiB of memory
/// used, and the list must have a row for each layer that was counted.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Inspect({reinterpret_cast<const char*>(data), size});
  return 0;
}
