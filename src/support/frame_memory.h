// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

namespace sentrel {

/// Whole pages, left out of core dumps and of child processes, and given back to the kernel, which wipes
/// them, when they go. One thread at a time.
class FramePages {
 public:
  FramePages() = default;
  /// At least so many bytes, all of them zero. Throws std::bad_alloc.
  explicit FramePages(std::size_t bytes);
  FramePages(FramePages&& other) noexcept { swap(other); }
  FramePages& operator=(FramePages other) noexcept {
    swap(other);
    return *this;
  }
  ~FramePages();

  [[nodiscard]] void* data() const { return pages_; }
  [[nodiscard]] std::size_t size() const { return size_; }  ///< in bytes
  /// Overwrites all of it, in a way that the compiler keeps.
  void wipe();

 private:
  void swap(FramePages& other) noexcept {
    std::swap(pages_, other.pages_);
    std::swap(size_, other.size_);
  }

  void* pages_ = nullptr;
  std::size_t size_ = 0;
};

/// A row of numbers that hold a picture of the camera, or what was computed of its pixels. It owns all memory
/// that they were ever in: what a larger picture left behind a smaller one is wiped with it. One thread at a
/// time.
template <class T>
class FrameMemory {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  FrameMemory() = default;
  explicit FrameMemory(std::size_t count) { resize(count); }

  /// Room for so many, without taking new pages later. What they held is lost where it has to grow.
  void reserve(std::size_t count) {
    if (count * sizeof(T) <= pages_.size()) return;
    size_ = 0;
    pages_ = FramePages();  // first, so that there is never room for both
    pages_ = FramePages(count * sizeof(T));
  }
  /// Those beyond the former size are undefined; where it has to grow, all are.
  void resize(std::size_t count) {
    reserve(count);
    size_ = count;
  }
  /// Overwrites everything, also what is not in use any more.
  void wipe() { pages_.wipe(); }

  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] T* data() { return static_cast<T*>(pages_.data()); }
  [[nodiscard]] const T* data() const { return static_cast<const T*>(pages_.data()); }
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

}  // namespace sentrel
