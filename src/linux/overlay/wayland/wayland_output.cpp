// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_output.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "linux/overlay/screen_id.h"

namespace sentrel {

namespace {

constexpr double leastScale = 0.5;
constexpr double greatestScale = 8;

int turnedWidth(const WaylandOutputState& state) {
  return state.turned ? state.modeHeight : state.modeWidth;
}
int turnedHeight(const WaylandOutputState& state) {
  return state.turned ? state.modeWidth : state.modeHeight;
}

}  // namespace

double deviceScale(const WaylandOutputState& state) {
  const double whole = std::clamp<double>(state.scale, 1, greatestScale);
  if (state.logical.width <= 0 || state.logical.height <= 0 || state.modeWidth <= 0) return whole;
  const double horizontal = static_cast<double>(turnedWidth(state)) / state.logical.width;
  const double vertical = static_cast<double>(turnedHeight(state)) / state.logical.height;
  // A logical size is rounded to whole pixels; more than that apart, one of the sizes is not what it seems.
  const double tolerance = horizontal / std::min(state.logical.width, state.logical.height);
  if (std::abs(horizontal - vertical) > tolerance) return whole;
  if (horizontal < leastScale || horizontal > greatestScale) return whole;
  return horizontal;
}

Rect logicalFrame(const WaylandOutputState& state) {
  Rect frame = state.logical;
  if (frame.width > 0 && frame.height > 0) return frame;
  const int scale = std::max(state.scale, 1);
  frame.width = turnedWidth(state) / scale;
  frame.height = turnedHeight(state) / scale;
  return frame;
}

WaylandOutput::WaylandOutput(const WaylandConnection& connection,
                             const WaylandConnection::OutputGlobal& global, std::function<void()> onChange)
    : global_(global), onChange_(std::move(onChange)), output_(connection.bindOutput(global)) {
  listenToOutput();
  if (connection.outputManager() == nullptr) return;
  extent_.reset(zxdg_output_manager_v1_get_xdg_output(connection.outputManager(), output_));
  listenToExtent();
}

WaylandOutput::~WaylandOutput() {
  extent_.reset();
  if (wl_output_get_version(output_) >= WL_OUTPUT_RELEASE_SINCE_VERSION) {
    wl_output_release(output_);
  } else {
    wl_output_destroy(output_);
  }
}

Screen WaylandOutput::screen() const {
  // Without a name the global's number is the best there is: it changes when the output is plugged in anew.
  const std::string name = state_.name.empty() ? "output-" + std::to_string(global_.name) : state_.name;
  return {screenIdOf(name), name, logicalFrame(state_), false};
}

void WaylandOutput::listenToOutput() {
  static constexpr wl_output_listener listener{
      .geometry =
          [](void* self, wl_output*, std::int32_t x, std::int32_t y, std::int32_t, std::int32_t, std::int32_t,
             const char*, const char*, std::int32_t transform) {
            auto& output = *static_cast<WaylandOutput*>(self);
            output.pending_.turned = (transform & 1) != 0;
            if (output.extent_) return;
            output.pending_.logical.x = x;
            output.pending_.logical.y = y;
          },
      .mode =
          [](void* self, wl_output*, std::uint32_t flags, std::int32_t width, std::int32_t height,
             std::int32_t) {
            if ((flags & WL_OUTPUT_MODE_CURRENT) == 0) return;
            auto& pending = static_cast<WaylandOutput*>(self)->pending_;
            pending.modeWidth = width;
            pending.modeHeight = height;
          },
      .done = [](void* self, wl_output*) { static_cast<WaylandOutput*>(self)->complete(); },
      .scale = [](void* self, wl_output*,
                  std::int32_t factor) { static_cast<WaylandOutput*>(self)->pending_.scale = factor; },
      .name = [](void* self, wl_output*,
                 const char* name) { static_cast<WaylandOutput*>(self)->pending_.name = name; },
      .description = [](void*, wl_output*, const char*) {},
  };
  wl_output_add_listener(output_, &listener, this);
}

void WaylandOutput::listenToExtent() {
  static constexpr zxdg_output_v1_listener listener{
      .logical_position =
          [](void* self, zxdg_output_v1*, std::int32_t x, std::int32_t y) {
            auto& logical = static_cast<WaylandOutput*>(self)->pending_.logical;
            logical.x = x;
            logical.y = y;
          },
      .logical_size =
          [](void* self, zxdg_output_v1*, std::int32_t width, std::int32_t height) {
            auto& logical = static_cast<WaylandOutput*>(self)->pending_.logical;
            logical.width = width;
            logical.height = height;
          },
      // Before version 3 of the extension this one ends a description, later the output's own.
      .done = [](void* self, zxdg_output_v1*) { static_cast<WaylandOutput*>(self)->complete(); },
      .name = [](void* self, zxdg_output_v1*,
                 const char* name) { static_cast<WaylandOutput*>(self)->pending_.name = name; },
      .description = [](void*, zxdg_output_v1*, const char*) {},
  };
  zxdg_output_v1_add_listener(extent_.get(), &listener, this);
}

void WaylandOutput::complete() {
  // The first description of an output may end before that of its extent has come.
  if (extent_ && pending_.logical.width == 0) return;
  const bool same = known_ && pending_ == state_;
  known_ = true;
  state_ = pending_;
  if (!same) onChange_();
}

}  // namespace sentrel
