// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include <xcb/shm.h>

#include "linux/overlay/x11/x11_connection.h"

namespace sentrel {

/// Pixels in memory that the X server reads directly. Main thread.
class X11SharedBuffer {
 public:
  /// Null when the memory cannot be had or the server refuses it. Waits for the server's answer.
  [[nodiscard]] static std::unique_ptr<X11SharedBuffer> create(const X11Connection& connection,
                                                               std::size_t pixelCount);
  ~X11SharedBuffer();
  X11SharedBuffer(const X11SharedBuffer&) = delete;
  X11SharedBuffer& operator=(const X11SharedBuffer&) = delete;

  [[nodiscard]] std::span<std::uint32_t> pixels() const { return pixels_; }
  [[nodiscard]] xcb_shm_seg_t segment() const { return segment_; }

 private:
  X11SharedBuffer(const X11Connection& connection, std::span<std::uint32_t> pixels);

  const X11Connection& connection_;
  std::span<std::uint32_t> pixels_;
  xcb_shm_seg_t segment_;
};

}  // namespace sentrel
