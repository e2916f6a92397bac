// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "linux/overlay/wayland/wayland_memory.h"

namespace sentrel {

/// Pictures of one pixel, to be stretched over a whole surface: each colour is made once and used as often as
/// wanted. Main thread.
class WaylandPalette {
 public:
  /// `memory` has one pixel for each colour that is ever asked for; later ones share the last.
  explicit WaylandPalette(WaylandMemory memory) : memory_(std::move(memory)) {}

  /// `argb` is premultiplied.
  [[nodiscard]] wl_buffer* color(std::uint32_t argb);

 private:
  WaylandMemory memory_;
  std::map<std::uint32_t, WaylandObject<wl_buffer>> buffers_;
};

}  // namespace sentrel
