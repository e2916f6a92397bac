// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <optional>
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
    /// The connection broke, or cannot be used after all; called in a turn of its own.
    std::function<void()> lost;
  };

  /// Null when the compositor cannot be reached, does not let us cover its outputs, or there is no memory.
  /// One that does not answer within a moment is waited for without holding anything up.
  [[nodiscard]] static std::unique_ptr<WaylandDesktop> open(const std::string& display, MainLoop& loop,
                                                            Handlers handlers);

  [[nodiscard]] const WaylandConnection& connection() const { return *connection_; }
  /// Whether the compositor has told all about itself; before that there are no screens.
  [[nodiscard]] bool isUsable() const { return stage_ == Stage::usable; }
  /// Once it is usable.
  [[nodiscard]] WaylandPalette& palette() { return *palette_; }
  [[nodiscard]] MainLoop& loop() { return loop_; }
  /// Those whose description is complete, the main one marked, in the compositor's order.
  [[nodiscard]] std::vector<Screen> screens() const;
  /// As that of OverlayBackend.
  [[nodiscard]] std::string limitation() const { return isUsable() ? "" : "error_no_overlay"; }
  /// Null when there is none. Who shows something on it holds it, because it may go a turn before that does.
  [[nodiscard]] std::shared_ptr<const WaylandOutput> output(std::uint64_t screenId) const;
  void flush() const { wl_display_flush(connection_->get()); }

 private:
  /// How far we have come to know the compositor.
  enum class Stage { asking, usable, useless };

  WaylandDesktop(std::unique_ptr<WaylandConnection> connection, MainLoop& loop, Handlers handlers);

  void offersKnown();
  void updateOutputs();
  void announce();
  void lose();

  std::unique_ptr<WaylandConnection> connection_;
  MainLoop& loop_;
  Handlers handlers_;
  Stage stage_ = Stage::asking;
  std::optional<WaylandPalette> palette_;
  std::vector<std::shared_ptr<WaylandOutput>> outputs_;
  Registration change_;
  Registration loss_;
  WaylandEventPump pump_;
};

}  // namespace sentrel
