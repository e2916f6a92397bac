// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "linux/overlay/wayland/wayland_object.h"

namespace sentrel {

/// Memory that the compositor can read: premultiplied 32-bit pixels, mapped here for writing. Main thread.
class WaylandMemory {
 public:
  /// None when memory or descriptors are exhausted: its pages are there once this returns.
  [[nodiscard]] static std::optional<WaylandMemory> allocate(wl_shm* shm, std::size_t pixelCount);
  WaylandMemory(WaylandMemory&& other) noexcept;
  WaylandMemory& operator=(WaylandMemory&& other) = delete;
  WaylandMemory(const WaylandMemory&) = delete;
  WaylandMemory& operator=(const WaylandMemory&) = delete;
  ~WaylandMemory();

  /// Empty once unmapped.
  [[nodiscard]] std::span<std::uint32_t> pixels() const { return pixels_; }
  /// Lets go of our view of it; the compositor keeps its own.
  void unmap();
  /// A picture that begins at this pixel.
  [[nodiscard]] WaylandObject<wl_buffer> makeBuffer(std::size_t firstPixel, int width, int height) const;

 private:
  WaylandMemory(std::span<std::uint32_t> pixels, WaylandObject<wl_shm_pool> pool);

  std::span<std::uint32_t> pixels_;
  WaylandObject<wl_shm_pool> pool_;
};

}  // namespace sentrel
