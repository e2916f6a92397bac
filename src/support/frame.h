// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

namespace sentrel {

/// Whole pages, left out of core dumps and of child processes. They go back to the kernel, which wipes them.
struct FramePagesDeleter {
  void operator()(void* pages) const;
  std::size_t size = 0;  ///< in bytes
};
using FramePages = std::unique_ptr<void, FramePagesDeleter>;

/// At least so many bytes (> 0), all of them zero. Throws std::bad_alloc.
FramePages allocateFramePages(std::size_t bytes);

/// Overwrites all of it, in a way that the compiler keeps.
void wipe(const FramePages& pages);

/// An array of numbers: the pixels of a camera frame, or what was computed of them. It owns all memory that
/// they were ever in: what a larger frame left behind a smaller one is wiped with it. One thread at a time.
template <class T>
class FrameMemory {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  FrameMemory() = default;
  explicit FrameMemory(std::size_t count) { resize(count); }

  /// Takes memory for so many, so that `resize` needs none. Where it has to grow, the content is lost.
  void reserve(std::size_t count) {
    const std::size_t bytes = count * sizeof(T);
    if (bytes <= (pages_ ? pages_.get_deleter().size : 0)) return;
    size_ = 0;
    pages_.reset();  // first, so that the two never exist at once
    pages_ = allocateFramePages(bytes);
  }
  /// Elements beyond the former size are undefined; where it has to grow, all are.
  void resize(std::size_t count) {
    reserve(count);
    size_ = count;
  }
  /// Overwrites everything, also what is not in use any more.
  void wipe() { sentrel::wipe(pages_); }

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] T* data() { return static_cast<T*>(pages_.get()); }
  [[nodiscard]] const T* data() const { return static_cast<const T*>(pages_.get()); }
  [[nodiscard]] T* begin() { return data(); }
  [[nodiscard]] const T* begin() const { return data(); }
  [[nodiscard]] T* end() { return data() + size_; }
  [[nodiscard]] const T* end() const { return data() + size_; }
  [[nodiscard]] T& operator[](std::size_t index) { return data()[index]; }
  [[nodiscard]] const T& operator[](std::size_t index) const { return data()[index]; }

 private:
  FramePages pages_;
  std::size_t size_ = 0;
};

/// One image in memory: 32-bit BGRA rows from top to bottom, `stride` bytes apart. It may bring the same
/// image with more pixels, for whoever reads small things in it.
class Frame {
 public:
  Frame() = default;
  ~Frame();
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

  /// The same image with more pixels, or none.
  [[nodiscard]] const Frame* larger() const { return larger_ && !larger_->empty() ? larger_.get() : nullptr; }

  /// Gives the frame a size; its content is undefined afterwards, and there is no larger image. Allocates
  /// only when it grows.
  void resize(int width, int height);

  /// Gives the larger image a size, and itself to be filled; none where that is 0. Allocates like `resize`.
  Frame& resizeLarger(int width, int height);

  /// Overwrites every pixel with zero, also those of a larger frame before.
  void clear();

 private:
  FrameMemory<std::uint8_t> bytes_;
  std::unique_ptr<Frame> larger_;
  int width_ = 0;
  int height_ = 0;
};

/// How many frames of this process have memory just now. Any thread.
[[nodiscard]] std::int64_t framesInMemory();

/// A shared, read-only reference to a pooled frame; the frame returns to its pool with the last reference.
/// Any thread.
using FrameRef = std::shared_ptr<const Frame>;

/// A fixed set of frames: the only memory that ever holds a camera image. One thread acquires; references
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
