// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_palette.h"

#include <algorithm>

namespace sentrel {

wl_buffer* WaylandPalette::color(std::uint32_t argb) {
  auto found = buffers_.find(argb);
  if (found == buffers_.end()) {
    const std::size_t slot = std::min(buffers_.size(), memory_.pixels().size() - 1);
    memory_.pixels()[slot] = argb;
    found = buffers_.emplace(argb, memory_.makeBuffer(slot, 1, 1)).first;
  }
  return found->second.get();
}

}  // namespace sentrel
