// SPDX-License-Identifier: Apache-2.0
#include "support/frame_memory.h"

#include <string.h>
#include <sys/mman.h>

#include <new>

namespace sentrel {

FramePages::FramePages(std::size_t bytes) {
  if (bytes == 0) return;
  void* pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  madvise(pages, bytes, MADV_DONTDUMP);
  madvise(pages, bytes, MADV_DONTFORK);
  pages_ = pages;
  size_ = bytes;
}

void FramePages::wipe() {
  if (pages_ != nullptr) explicit_bzero(pages_, size_);
}

FramePages::~FramePages() {
  if (pages_ != nullptr) munmap(pages_, size_);
}

}  // namespace sentrel
