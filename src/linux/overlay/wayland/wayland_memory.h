// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "linux/overlay/wayland/wayland_object.h"

namespace sentrel {

/// Memory that the compositor can read: premultiplied 32-bit pixels. Main thread.
class WaylandMemory {
 public:
  /// Mapped here for writing. None when memory or descriptors are exhausted: its pages are there once this
  /// returns.
  [[nodiscard]] static std::optional<WaylandMemory> allocate(wl_shm* shm, std::size_t pixelCount);
  /// Holds a copy of these rows, one after the other, which nobody changes any more: not mapped here, and
  /// half as dear as mapping, clearing and writing it. None when memory or descriptors are exhausted.
  using Row = std::span<const std::uint32_t>;
  [[nodiscard]] static std::optional<WaylandMemory> copyOf(wl_shm* shm, std::span<const Row> rows);
  WaylandMemory(WaylandMemory&& other) noexcept;
  WaylandMemory& operator=(WaylandMemory&& other) = delete;
  WaylandMemory(const WaylandMemory&) = delete;
  WaylandMemory& operator=(const WaylandMemory&) = delete;
  ~WaylandMemory();

  /// Empty when it is not mapped.
  [[nodiscard]] std::span<std::uint32_t> pixels() const { return pixels_; }
  /// A picture that begins at this pixel.
  [[nodiscard]] WaylandObject<wl_buffer> makeBuffer(std::size_t firstPixel, int width, int height) const;

 private:
  WaylandMemory(std::span<std::uint32_t> pixels, WaylandObject<wl_shm_pool> pool);

  std::span<std::uint32_t> pixels_;
  WaylandObject<wl_shm_pool> pool_;
};

}  // namespace sentrel
