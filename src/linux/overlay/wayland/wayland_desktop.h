// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "linux/overlay/wayland/wayland_connection.h"
#include "linux/overlay/wayland/wayland_event_pump.h"
#include "linux/overlay/wayland/wayland_output.h"
#include "linux/overlay/wayland/wayland_palette.h"
#include "support/main_loop.h"

namespace sentrel {

/// One compositor as long as its connection lives, and its outputs. Main thread.
class WaylandDesktop {
 public:
  struct Handlers {
    std::function<void()> changed;  ///< outputs
    std::function<void()> lost;     ///< the connection broke; called in a turn of its own
  };

  /// Null when the compositor cannot be reached, does not let us cover its outputs, or there is no memory.
  [[nodiscard]] static std::unique_ptr<WaylandDesktop> open(const std::string& display, MainLoop& loop,
                                                            Handlers handlers);

  [[nodiscard]] const WaylandConnection& connection() const { return *connection_; }
  [[nodiscard]] WaylandPalette& palette() { return palette_; }
  [[nodiscard]] MainLoop& loop() { return loop_; }
  /// Those whose description is complete, the main one marked, in the compositor's order.
  [[nodiscard]] std::vector<Screen> screens() const;
  /// As that of OverlayBackend.
  [[nodiscard]] std::string limitation() const { return ""; }
  /// Null when there is none.
  [[nodiscard]] const WaylandOutput* output(std::uint64_t screenId) const;
  void flush() const { wl_display_flush(connection_->get()); }

 private:
  WaylandDesktop(std::unique_ptr<WaylandConnection> connection, WaylandMemory colors, MainLoop& loop,
                 Handlers handlers);

  void updateOutputs();

  std::unique_ptr<WaylandConnection> connection_;
  MainLoop& loop_;
  Handlers handlers_;
  WaylandPalette palette_;
  std::vector<std::unique_ptr<WaylandOutput>> outputs_;
  Registration change_;
  Registration loss_;
  WaylandEventPump pump_;
};

}  // namespace sentrel
