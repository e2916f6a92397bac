// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_pictures.h"

#include <algorithm>
#include <utility>

namespace sentrel {

WaylandPicture* WaylandPictures::idle(int width, int height) {
  std::erase_if(pictures_, [width, height](const auto& picture) {
    return !picture->shown && (picture->width != width || picture->height != height);
  });
  const auto found = std::ranges::find(pictures_, false, &WaylandPicture::shown);
  return found == pictures_.end() ? nullptr : found->get();
}

WaylandPicture& WaylandPictures::add(WaylandMemory memory, int width, int height) {
  static constexpr wl_buffer_listener listener{
      .release = [](void* self, wl_buffer* buffer) { static_cast<WaylandPictures*>(self)->released(buffer); },
  };
  auto buffer = memory.makeBuffer(0, width, height);
  wl_buffer_add_listener(buffer.get(), &listener, this);
  pictures_.push_back(
      std::make_unique<WaylandPicture>(WaylandPicture{std::move(memory), std::move(buffer), width, height}));
  return *pictures_.back();
}

void WaylandPictures::released(wl_buffer* buffer) {
  const auto found = std::ranges::find_if(
      pictures_, [buffer](const auto& picture) { return picture->buffer.get() == buffer; });
  if (found == pictures_.end()) return;
  WaylandPicture& picture = **found;
  picture.shown = false;
  const auto pixels = static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height);
  if (pixels < leastKept_) pictures_.erase(found);
}

}  // namespace sentrel
