// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "linux/overlay/wayland/memory_file.h"
#include "linux/overlay/wayland/wayland_object.h"

namespace sentrel {

/// Memory that the compositor can read: premultiplied 32-bit pixels. Main thread.
class WaylandMemory {
 public:
  using Row = MemoryFile::Row;

  /// Mapped here for writing. None when memory or descriptors are exhausted: its pages are there once this
  /// returns.
  [[nodiscard]] static std::optional<WaylandMemory> allocate(wl_shm* shm, std::size_t pixelCount);
  /// Holds a copy of these rows, one after the other: not mapped here, and half as dear as mapping, clearing
  /// and writing it. None when memory or descriptors are exhausted.
  [[nodiscard]] static std::optional<WaylandMemory> copyOf(wl_shm* shm, std::span<const Row> rows);
  WaylandMemory(WaylandMemory&& other) noexcept;
  WaylandMemory& operator=(WaylandMemory&& other) = delete;
  WaylandMemory(const WaylandMemory&) = delete;
  WaylandMemory& operator=(const WaylandMemory&) = delete;
  ~WaylandMemory();

  /// Empty when it is not mapped.
  [[nodiscard]] std::span<std::uint32_t> pixels() const { return pixels_; }
  /// Copies as many rows again to where those of `copyOf` are. False when that fails, which is not expected:
  /// it needs no further memory.
  [[nodiscard]] bool overwrite(std::span<const Row> rows) const { return file_.write(rows); }
  /// A picture that begins at this pixel.
  [[nodiscard]] WaylandObject<wl_buffer> makeBuffer(std::size_t firstPixel, int width, int height) const;

 private:
  WaylandMemory(wl_shm* shm, MemoryFile file, std::size_t bytes);

  MemoryFile file_;
  WaylandObject<wl_shm_pool> pool_;
  std::span<std::uint32_t> pixels_;
};

}  // namespace sentrel
