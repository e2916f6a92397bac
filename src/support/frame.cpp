// SPDX-License-Identifier: Apache-2.0
#include "support/frame.h"

#include <algorithm>
#include <atomic>

namespace sentrel {

void Frame::resize(int width, int height) {
  width_ = width > 0 && height > 0 ? width : 0;
  height_ = width_ > 0 ? height : 0;
  bytes_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4);
}

namespace {

/// True when only the pool holds the frame. The count cannot grow again behind our back, because only the
/// pool makes new references; the fence orders what the last holder did before what the next one does.
bool isUnused(const std::shared_ptr<Frame>& frame) {
  if (frame.use_count() != 1) return false;
  std::atomic_thread_fence(std::memory_order_acquire);
  return true;
}

}  // namespace

FramePool::FramePool(std::size_t count) {
  frames_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) frames_.push_back(std::make_shared<Frame>());
}

std::shared_ptr<Frame> FramePool::acquire(int width, int height) {
  const auto found = std::find_if(frames_.begin(), frames_.end(), isUnused);
  if (found == frames_.end()) return nullptr;
  (*found)->resize(width, height);
  return *found;
}

}  // namespace sentrel
