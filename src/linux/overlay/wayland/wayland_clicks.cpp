// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_clicks.h"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace sentrel {

namespace {

/// The size that the person chose for the pointer, in logical pixels.
int cursorSize() {
  constexpr int usual = 24;
  constexpr int greatest = 256;
  const char* chosen = std::getenv("XCURSOR_SIZE");
  const int size = chosen == nullptr ? 0 : std::atoi(chosen);
  return size > 0 ? std::min(size, greatest) : usual;
}

}  // namespace

WaylandClicks::WaylandClicks(wl_compositor* compositor, wl_shm* sharedMemory, wl_seat* seat)
    : compositor_(compositor), sharedMemory_(sharedMemory), seat_(seat) {
  if (seat_ == nullptr) return;
  static constexpr wl_seat_listener listener{
      .capabilities =
          [](void* self, wl_seat*, std::uint32_t capabilities) {
            auto& clicks = *static_cast<WaylandClicks*>(self);
            const bool hasPointer = (capabilities & WL_SEAT_CAPABILITY_POINTER) != 0;
            const bool hasTouch = (capabilities & WL_SEAT_CAPABILITY_TOUCH) != 0;
            if (!hasPointer) clicks.pointer_.reset();
            if (!hasTouch) clicks.touch_.reset();
            if (hasPointer && !clicks.pointer_) clicks.listenToPointer();
            if (hasTouch && !clicks.touch_) clicks.listenToTouch();
          },
      .name = [](void*, wl_seat*, const char*) {},
  };
  wl_seat_add_listener(seat_, &listener, this);
}

void WaylandClicks::listenToPointer() {
  // What later versions tell is not listened to.
  static const wl_pointer_listener listener = [] {
    wl_pointer_listener made{};
    made.enter = [](void* self, wl_pointer*, std::uint32_t serial, wl_surface* surface, wl_fixed_t x,
                    wl_fixed_t y) {
      auto& clicks = *static_cast<WaylandClicks*>(self);
      clicks.place_ = {surface, wl_fixed_to_double(x), wl_fixed_to_double(y)};
      clicks.showCursor(serial);
    };
    made.leave = [](void* self, wl_pointer*, std::uint32_t, wl_surface*) {
      auto& clicks = *static_cast<WaylandClicks*>(self);
      clicks.place_ = {};
      clicks.pressed_ = false;
    };
    made.motion = [](void* self, wl_pointer*, std::uint32_t, wl_fixed_t x, wl_fixed_t y) {
      auto& place = static_cast<WaylandClicks*>(self)->place_;
      place.x = wl_fixed_to_double(x);
      place.y = wl_fixed_to_double(y);
    };
    made.button = [](void* self, wl_pointer*, std::uint32_t, std::uint32_t, std::uint32_t button,
                     std::uint32_t state) {
      if (button != BTN_LEFT) return;
      auto& clicks = *static_cast<WaylandClicks*>(self);
      const bool presses = state == WL_POINTER_BUTTON_STATE_PRESSED;
      const bool ends = std::exchange(clicks.pressed_, presses) && !presses;
      const Place at = clicks.place_;
      if (ends && at.surface != nullptr) clicks.clicked.emit(at.surface, at.x, at.y);
    };
    made.axis = [](void*, wl_pointer*, std::uint32_t, std::uint32_t, wl_fixed_t) {};
    return made;
  }();
  pointer_.reset(wl_seat_get_pointer(seat_));
  wl_pointer_add_listener(pointer_.get(), &listener, this);
}

void WaylandClicks::listenToTouch() {
  // What later versions tell is not listened to.
  static const wl_touch_listener listener = [] {
    wl_touch_listener made{};
    made.down = [](void* self, wl_touch*, std::uint32_t, std::uint32_t, wl_surface* surface,
                   std::int32_t finger, wl_fixed_t x, wl_fixed_t y) {
      static_cast<WaylandClicks*>(self)->fingers_[finger] = {surface, wl_fixed_to_double(x),
                                                             wl_fixed_to_double(y)};
    };
    made.up = [](void* self, wl_touch*, std::uint32_t, std::uint32_t, std::int32_t finger) {
      auto& clicks = *static_cast<WaylandClicks*>(self);
      const auto found = clicks.fingers_.extract(finger);
      if (found.empty() || found.mapped().surface == nullptr) return;
      clicks.clicked.emit(found.mapped().surface, found.mapped().x, found.mapped().y);
    };
    made.motion = [](void* self, wl_touch*, std::uint32_t, std::int32_t finger, wl_fixed_t x, wl_fixed_t y) {
      Place& place = static_cast<WaylandClicks*>(self)->fingers_[finger];
      place.x = wl_fixed_to_double(x);
      place.y = wl_fixed_to_double(y);
    };
    made.frame = [](void*, wl_touch*) {};
    made.cancel = [](void* self, wl_touch*) { static_cast<WaylandClicks*>(self)->fingers_.clear(); };
    return made;
  }();
  touch_.reset(wl_seat_get_touch(seat_));
  wl_touch_add_listener(touch_.get(), &listener, this);
}

/// A pointer that enters keeps the last program's form, or has none, unless it is given one.
void WaylandClicks::showCursor(std::uint32_t serial) {
  if (!theme_) theme_.reset(wl_cursor_theme_load(std::getenv("XCURSOR_THEME"), cursorSize(), sharedMemory_));
  wl_cursor* cursor = theme_ ? wl_cursor_theme_get_cursor(theme_.get(), "left_ptr") : nullptr;
  if (cursor == nullptr) return;
  const wl_cursor_image& image = *cursor->images[0];
  if (!cursor_) cursor_.reset(wl_compositor_create_surface(compositor_));
  wl_pointer_set_cursor(pointer_.get(), serial, cursor_.get(), static_cast<std::int32_t>(image.hotspot_x),
                        static_cast<std::int32_t>(image.hotspot_y));
  wl_surface_attach(cursor_.get(), wl_cursor_image_get_buffer(cursor->images[0]), 0, 0);
  wl_surface_damage(cursor_.get(), 0, 0, static_cast<std::int32_t>(image.width),
                    static_cast<std::int32_t>(image.height));
  wl_surface_commit(cursor_.get());
}

}  // namespace sentrel
