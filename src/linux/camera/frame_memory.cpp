// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/frame_memory.h"

#include <sys/mman.h>

#include <new>

namespace sentrel {

namespace {

class FrameMemory final : public std::pmr::memory_resource {
  void* do_allocate(std::size_t bytes, std::size_t /*alignment*/) override {
    // Pages are aligned for every type that a picture is made of.
    void* pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    madvise(pages, bytes, MADV_DONTDUMP);
    madvise(pages, bytes, MADV_DONTFORK);
    return pages;
  }

  void do_deallocate(void* pages, std::size_t bytes, std::size_t /*alignment*/) override {
    munmap(pages, bytes);
  }

  [[nodiscard]] bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
    return this == &other;
  }
};

}  // namespace

std::pmr::memory_resource* frameMemory() {
  static FrameMemory* const memory = new FrameMemory;  // never destroyed: see the header
  return memory;
}

}  // namespace sentrel
