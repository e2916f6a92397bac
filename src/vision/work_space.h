// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <new>

#include <string.h>

namespace sentrel::vision {

/// The memory in which every runner of an engine keeps its tensors, one runner at a time. It grows while
/// runners are prepared and is allocated once, at the first run after that.
class WorkSpace {
 public:
  WorkSpace() = default;
  ~WorkSpace() { forget(); }
  WorkSpace(const WorkSpace&) = delete;
  WorkSpace& operator=(const WorkSpace&) = delete;

  void reserve(std::size_t bytes) { wanted_ = bytes > wanted_ ? bytes : wanted_; }

  /// The start, aligned to 64 bytes. It moves only when more was reserved since the last call.
  [[nodiscard]] std::byte* data() {
    if (wanted_ > size_) {
      forget();
      memory_.reset(static_cast<std::byte*>(::operator new(wanted_, alignment)));
      size_ = wanted_;
    }
    return memory_.get();
  }

 private:
  static constexpr std::align_val_t alignment{64};
  struct Release {
    void operator()(std::byte* memory) const { ::operator delete(memory, alignment); }
  };

  /// It holds what the camera saw.
  void forget() {
    if (memory_) explicit_bzero(memory_.get(), size_);
    memory_.reset();
  }

  std::unique_ptr<std::byte, Release> memory_;
  std::size_t size_ = 0;
  std::size_t wanted_ = 0;
};

}  // namespace sentrel::vision
