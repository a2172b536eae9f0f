#include "tests/support/scarce_memory_win32.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr long kNever = std::numeric_limits<long>::max();

std::atomic<long> asked = 0;
std::atomic<long> first_refused = kNever;
std::atomic<long> last_refused = kNever;

}  // namespace

void* operator new(std::size_t size) {
  const long number = asked++;
  void* const memory = number >= first_refused && number <= last_refused
                           ? nullptr
                           : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

namespace kestrune {

ScarceMemory::ScarceMemory(long allowed, Refused refused) {
  asked = 0;
  last_refused = refused == Refused::One ? allowed : kNever;
  first_refused = allowed;
}

ScarceMemory::~ScarceMemory() {
  first_refused = kNever;
}

long ScarceMemory::Asked() {
  return asked;
}

}  // namespace kestrune
