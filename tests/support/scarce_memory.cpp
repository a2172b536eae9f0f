#include "tests/support/scarce_memory.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr long kNever = std::numeric_limits<long>::max();

std::atomic<long> asked = 0;
std::atomic<long> first_refused = kNever;
std::atomic<long> last_refused = kNever;
std::atomic<long> other_refused = kNever;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  const long number = asked++;
  const bool is_refused =
      (number >= first_refused && number <= last_refused) || number == other_refused;
  return is_refused ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
  void* const memory = operator new(size, std::nothrow);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}

void operator delete[](void* memory) noexcept {
  std::free(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
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

ScarceMemory::ScarceMemory(long one, long other) : ScarceMemory(one, Refused::One) {
  other_refused = other;
}

ScarceMemory::~ScarceMemory() {
  other_refused = kNever;
  first_refused = kNever;
}

long ScarceMemory::Asked() {
  return asked;
}

}  // namespace kestrune
