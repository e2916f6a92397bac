// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "linux/overlay/wayland/wayland_memory.h"
#include "linux/overlay/wayland/wayland_object.h"

namespace sentrel {

/// A picture of one surface and its memory.
struct WaylandPicture {
  WaylandMemory memory;
  WaylandObject<wl_buffer> buffer;
  int width;
  int height;
  bool shown = false;  ///< the compositor may read it: not to be written
};

/// The changing pictures of one surface. Fresh memory costs several times as much as what is written into it,
/// so that of a picture that the compositor has let go of serves the next one. Main thread.
class WaylandPictures {
 public:
  /// Pictures of fewer than `leastKept` pixels are not kept for that.
  explicit WaylandPictures(std::size_t leastKept) : leastKept_(leastKept) {}
  WaylandPictures(const WaylandPictures&) = delete;
  WaylandPictures& operator=(const WaylandPictures&) = delete;

  /// One of this size to be written anew; null when there is none. Those of other sizes are given up.
  [[nodiscard]] WaylandPicture* idle(int width, int height);
  [[nodiscard]] WaylandPicture& add(WaylandMemory memory, int width, int height);

 private:
  void released(wl_buffer* buffer);

  std::size_t leastKept_;
  std::vector<std::unique_ptr<WaylandPicture>> pictures_;
};

}  // namespace sentrel
