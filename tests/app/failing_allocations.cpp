// SPDX-License-Identifier: Apache-2.0
//
// Loaded into the program by its tests: of the memory that it asks for, one piece in ten thousand is refused,
// by chance. The variable SENTREL_REFUSALS says "SEED FIRST": which chance, and how many pieces are given
// before the first refusal.
#include <dlfcn.h>
#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);

namespace {

constexpr std::uint64_t oneIn = 10'000;

std::atomic<std::int64_t> left{INT64_MAX};
std::atomic<std::uint64_t> chance{0};

bool isRefused() {
  if (left.fetch_sub(1, std::memory_order_relaxed) > 0) return false;
  std::uint64_t mixed = chance.fetch_add(0x9E3779B97F4A7C15U, std::memory_order_relaxed);
  mixed = (mixed ^ mixed >> 30U) * 0xBF58476D1CE4E5B9U;
  mixed = (mixed ^ mixed >> 27U) * 0x94D049BB133111EBU;
  if ((mixed ^ mixed >> 31U) % oneIn != 0) return false;
  errno = ENOMEM;
  return true;
}

[[gnu::constructor]] void begin() {
  const char* words = std::getenv("SENTREL_REFUSALS");
  unsigned long long seed = 0;
  long long first = 0;
  if (words == nullptr || std::sscanf(words, "%llu %lld", &seed, &first) != 2) return;
  chance = seed << 32U;
  left = first;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  return isRefused() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  return isRefused() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
  return isRefused() ? nullptr : __libc_realloc(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return isRefused() ? nullptr : __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  void* const made = memalign(alignment, size);
  if (made != nullptr) *block = made;
  return made != nullptr ? 0 : ENOMEM;
}
}
