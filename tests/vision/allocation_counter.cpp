// SPDX-License-Identifier: Apache-2.0
#include "vision/allocation_counter.h"

#include <atomic>
#include <cerrno>

// The C library's own names for what is counted here; operator new ends in malloc.
extern "C" {
void* __libc_malloc(std::size_t size);                           // NOLINT
void* __libc_realloc(void* memory, std::size_t size);            // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT
}

namespace {
std::atomic<std::size_t> allocations{0};
}

#if !defined(__SANITIZE_ADDRESS__) && defined(__GLIBC__)
extern "C" {
void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
void* realloc(void* memory, std::size_t size) {
  ++allocations;
  return __libc_realloc(memory, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  ++allocations;
  return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = aligned_alloc(alignment, size);
  return *memory == nullptr ? ENOMEM : 0;
}
}
#endif

std::size_t sentrel::test::allocationCount() {
  return allocations;
}
