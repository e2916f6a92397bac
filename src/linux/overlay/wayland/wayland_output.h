// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "linux/overlay/wayland/wayland_connection.h"
#include "platform/overlay_surface.h"

namespace sentrel {

/// What a compositor tells of an output.
struct WaylandOutputState {
  std::string name;   ///< as "DP-1"; empty where it is not told
  Rect logical;       ///< logical pixels; without a size where it is not told
  int modeWidth = 0;  ///< device pixels, not turned
  int modeHeight = 0;
  bool turned = false;  ///< by a quarter, either way
  int scale = 1;        ///< whole, rounded up
  bool operator==(const WaylandOutputState&) const = default;
};

/// Device pixels to a logical one on an output: 1.5 also where the compositor tells no more than the next
/// whole number. Always between 0.5 and 8.
[[nodiscard]] double deviceScale(const WaylandOutputState& state);
/// The frame in logical pixels, without one from the compositor by mode and scale.
[[nodiscard]] Rect logicalFrame(const WaylandOutputState& state);

/// One output as long as its global lives. Main thread.
class WaylandOutput {
 public:
  /// `onChange` is called with every complete description.
  WaylandOutput(const WaylandConnection& connection, const WaylandConnection::OutputGlobal& global,
                std::function<void()> onChange);
  ~WaylandOutput();
  WaylandOutput(const WaylandOutput&) = delete;
  WaylandOutput& operator=(const WaylandOutput&) = delete;

  [[nodiscard]] std::uint32_t globalName() const { return global_.name; }
  [[nodiscard]] wl_output* get() const { return output_; }
  /// Whether the first description is complete.
  [[nodiscard]] bool isKnown() const { return known_; }
  [[nodiscard]] const WaylandOutputState& state() const { return state_; }
  /// Not marked as the main one.
  [[nodiscard]] Screen screen() const;

 private:
  void listenToOutput();
  void listenToExtent();
  void complete();

  const WaylandConnection::OutputGlobal global_;
  std::function<void()> onChange_;
  wl_output* output_;
  WaylandObject<zxdg_output_v1> extent_;
  WaylandOutputState state_;
  WaylandOutputState pending_;
  bool known_ = false;
};

}  // namespace sentrel
