// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "support/frame_memory.h"

namespace sentrel {

/// One picture in memory: 32-bit BGRA rows from top to bottom, `stride` bytes apart.
class Frame {
 public:
  Frame() = default;
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  [[nodiscard]] int width() const { return width_; }
  [[nodiscard]] int height() const { return height_; }
  [[nodiscard]] int stride() const { return width_ * 4; }
  [[nodiscard]] bool empty() const { return width_ == 0 || height_ == 0; }
  [[nodiscard]] std::uint8_t* data() { return bytes_.data(); }
  [[nodiscard]] const std::uint8_t* data() const { return bytes_.data(); }
  [[nodiscard]] const std::uint8_t* row(int y) const {
    return bytes_.data() + static_cast<std::ptrdiff_t>(y) * stride();
  }

  /// Gives the frame a size; its content is undefined afterwards. Allocates only when it grows.
  void resize(int width, int height);

  /// Overwrites every pixel with zero, also those of a larger picture before.
  void clear() { bytes_.wipe(); }

 private:
  FrameMemory<std::uint8_t> bytes_;
  int width_ = 0;
  int height_ = 0;
};

/// A shared, read-only reference to a pooled frame; the frame returns to its pool with the last reference.
/// Any thread.
using FrameRef = std::shared_ptr<const Frame>;

/// A fixed set of frames: the only memory that ever holds a camera picture. One thread acquires; references
/// may be let go on any thread.
class FramePool {
 public:
  explicit FramePool(std::size_t count);

  /// A frame that nobody else holds, sized `width` x `height`, or none while all are in use.
  std::shared_ptr<Frame> acquire(int width, int height);

 private:
  std::vector<std::shared_ptr<Frame>> frames_;
};

}  // namespace sentrel
