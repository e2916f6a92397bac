// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "linux/display/wayland_connection.h"

namespace sentrel {

/// Memory that the compositor can read: premultiplied 32-bit pixels. Main thread.
class WaylandMemory {
 public:
  /// Mapped here for writing. Null when memory or descriptors are exhausted: its pages are there once this
  /// returns.
  [[nodiscard]] static std::unique_ptr<WaylandMemory> allocate(wl_shm* shm, std::size_t pixelCount);
  /// Holds a copy of these rows, all equally long, one after the other: not mapped here, and half as dear as
  /// mapping, clearing and writing it. Null when memory or descriptors are exhausted.
  [[nodiscard]] static std::unique_ptr<WaylandMemory> copyOf(wl_shm* shm, std::span<const iovec> rows);
  ~WaylandMemory();
  WaylandMemory(const WaylandMemory&) = delete;
  WaylandMemory& operator=(const WaylandMemory&) = delete;

  /// Empty when it is not mapped.
  [[nodiscard]] std::span<std::uint32_t> pixels() const { return pixels_; }
  /// Copies as many rows again to where those of `copyOf` are. False when there is no room.
  [[nodiscard]] bool overwrite(std::span<const iovec> rows) const;
  /// A buffer that begins at this pixel.
  [[nodiscard]] WaylandObject<wl_buffer> makeBuffer(std::size_t firstPixel, int width, int height) const;

 private:
  WaylandMemory();
  void createPool(wl_shm* shm, std::size_t bytes);

  int file_;  // without a name, in memory; -1 when there was no descriptor left
  WaylandObject<wl_shm_pool> pool_;
  std::span<std::uint32_t> pixels_;
};

/// A buffer of one surface and its memory.
struct WaylandBuffer {
  std::unique_ptr<WaylandMemory> memory;
  WaylandObject<wl_buffer> buffer;
  int width;
  int height;
  bool shown = false;  ///< the compositor may read it: not to be written
};

/// The buffers of one surface whose content changes. Fresh memory costs several times as much as what is
/// written into it, so that of a buffer that the compositor has released serves the next one. Main thread.
class WaylandBuffers {
 public:
  /// Buffers of fewer than `leastKept` pixels are not kept for that.
  explicit WaylandBuffers(std::size_t leastKept) : leastKept_(leastKept) {}
  WaylandBuffers(const WaylandBuffers&) = delete;
  WaylandBuffers& operator=(const WaylandBuffers&) = delete;

  /// One of this size to be written anew; null when there is none. Those of other sizes are given up.
  [[nodiscard]] WaylandBuffer* idle(int width, int height);
  [[nodiscard]] WaylandBuffer& add(std::unique_ptr<WaylandMemory> memory, int width, int height);

 private:
  void released(wl_buffer* buffer);

  std::size_t leastKept_;
  std::vector<std::unique_ptr<WaylandBuffer>> buffers_;
};

/// Buffers of one pixel, to be stretched over a whole surface: each colour is made once and used as often as
/// wanted. Main thread.
class WaylandPalette {
 public:
  /// `memory` has one pixel for each colour that is ever asked for; later ones share the last.
  explicit WaylandPalette(std::unique_ptr<WaylandMemory> memory) : memory_(std::move(memory)) {}

  /// `argb` is premultiplied.
  [[nodiscard]] wl_buffer* color(std::uint32_t argb);

 private:
  std::unique_ptr<WaylandMemory> memory_;
  std::map<std::uint32_t, WaylandObject<wl_buffer>> buffers_;
};

}  // namespace sentrel
