// SPDX-License-Identifier: Apache-2.0
#include "support/frame.h"

#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <new>

namespace sentrel {

namespace {
std::atomic<std::int64_t> framesWithMemory{0};
}  // namespace

std::int64_t framesInMemory() {
  return framesWithMemory;
}

void FramePagesDeleter::operator()(void* pages) const {
  munmap(pages, size);
}

FramePages allocateFramePages(std::size_t bytes) {
  void* pages = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  madvise(pages, bytes, MADV_DONTDUMP);
  madvise(pages, bytes, MADV_DONTFORK);
  return FramePages(pages, {bytes});
}

void wipe(const FramePages& pages) {
  if (pages) explicit_bzero(pages.get(), pages.get_deleter().size);
}

Frame::~Frame() {
  if (bytes_.data() != nullptr) --framesWithMemory;
}

void Frame::resize(int width, int height) {
  const bool hadMemory = bytes_.data() != nullptr;
  width_ = width > 0 && height > 0 ? width : 0;
  height_ = width_ > 0 ? height : 0;
  bytes_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4);
  if (!hadMemory && bytes_.data() != nullptr) ++framesWithMemory;
  if (larger_) larger_->resize(0, 0);
}

Frame& Frame::resizeLarger(int width, int height) {
  if (!larger_) larger_ = std::make_unique<Frame>();
  larger_->resize(width, height);
  return *larger_;
}

void Frame::clear() {
  bytes_.wipe();
  if (larger_) larger_->clear();
}

FramePool::FramePool(std::size_t count) {
  frames_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) frames_.push_back(std::make_shared<Frame>());
}

std::shared_ptr<Frame> FramePool::acquire(int width, int height) {
  // A frame that only the pool holds. The count cannot grow again behind our back, because only the pool
  // makes new references. Referring to it, and the fence, order what the last holder did before what the next
  // one does.
  const auto found = std::ranges::find(frames_, 1, &std::shared_ptr<Frame>::use_count);
  if (found == frames_.end()) return nullptr;
  auto frame = *found;
  std::atomic_thread_fence(std::memory_order_acquire);
  frame->resize(width, height);
  return frame;
}

}  // namespace sentrel
