// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "linux/display/wayland_connection.h"
#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/wayland/wayland_buffers.h"
#include "linux/overlay/wayland/wayland_clicks.h"
#include "platform/overlay_surface.h"
#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

/// What a compositor tells of an output.
struct WaylandOutputState {
  std::string name;   ///< as "DP-1"; empty where it is not told
  Rect logical;       ///< logical pixels; without a size where it is not told
  int modeWidth = 0;  ///< device pixels, turned as the output is
  int modeHeight = 0;
  int scale = 1;  ///< whole, rounded up
  bool operator==(const WaylandOutputState&) const = default;
};

/// Device pixels to a logical one on an output: 1.5 also where the compositor tells no more than the next
/// whole number. Always between 0.5 and 8.
[[nodiscard]] double deviceScale(const WaylandOutputState& state);
/// The frame in logical pixels, without one from the compositor by mode and scale.
[[nodiscard]] Rect logicalFrame(const WaylandOutputState& state);

/// What the overlay needs of a compositor; null what is not offered. Main thread.
struct WaylandGlobals {
  WaylandObject<wl_compositor> compositor;
  WaylandObject<wl_subcompositor> subcompositor;
  WaylandObject<wl_shm> sharedMemory;
  WaylandObject<wp_viewporter> viewporter;
  WaylandObject<zwlr_layer_shell_v1> layerShell;
  // These may be missing.
  WaylandObject<zxdg_output_manager_v1> outputManager;
  WaylandObject<wp_fractional_scale_manager_v1> fractionalScales;
  WaylandObject<wl_seat> seat;
  std::uint32_t compositorVersion = 0;  ///< that is offered

  void appeared(const WaylandConnection& connection, std::uint32_t name, std::string_view interface,
                std::uint32_t version);
  /// Whether there is all that a cover needs; the layer shell above all.
  [[nodiscard]] bool canCover() const;
};

/// One output as long as its global lives. Main thread.
class WaylandOutput {
 public:
  /// `onChange` is called with every complete description.
  WaylandOutput(const WaylandConnection& connection, const WaylandGlobals& globals, std::uint32_t globalName,
                std::uint32_t version, std::function<void()> onChange);
  WaylandOutput(const WaylandOutput&) = delete;
  WaylandOutput& operator=(const WaylandOutput&) = delete;

  [[nodiscard]] std::uint32_t globalName() const { return globalName_; }
  [[nodiscard]] wl_output* get() const { return output_.get(); }
  /// Whether the first description is complete.
  [[nodiscard]] bool isKnown() const { return known_; }
  [[nodiscard]] const WaylandOutputState& state() const { return state_; }
  /// Not marked as the main one.
  [[nodiscard]] Screen screen() const;

 private:
  void listenToOutput();
  void listenToExtent();
  void complete();

  const std::uint32_t globalName_;
  std::function<void()> onChange_;
  WaylandObject<wl_output> output_;
  WaylandObject<zxdg_output_v1> extent_;
  WaylandOutputState state_;
  WaylandOutputState pending_;  // its mode not turned
  bool turned_ = false;         // by a quarter, either way
  bool known_ = false;
};

/// One compositor as long as its connection lives, and its outputs. Main thread.
class WaylandDesktop {
 public:
  static constexpr auto systemName = "Wayland";

  /// Whether the compositor is there, and whether it can be covered. A silent one does not answer in time.
  enum class Reach { covers, refuses, absent, silent };
  /// `display` as in WAYLAND_DISPLAY.
  [[nodiscard]] static Reach probe(const std::string& display);

  /// Null when the compositor cannot be reached, does not let us cover its outputs, or there is no memory.
  /// One that does not answer within a moment is waited for without holding anything up.
  [[nodiscard]] static std::unique_ptr<WaylandDesktop> open(const std::string& display, MainLoop& loop,
                                                            DesktopHandlers handlers);

  [[nodiscard]] const WaylandGlobals& globals() const { return globals_; }
  /// Whether the compositor has told all about itself; before that there are no screens.
  [[nodiscard]] bool isUsable() const { return stage_ == Stage::usable; }
  /// Once it is usable.
  [[nodiscard]] WaylandPalette& palette() { return *palette_; }
  /// Clicks on those of our surfaces that take them; likewise.
  [[nodiscard]] WaylandClicks& clicks() { return *clicks_; }
  /// Whether, of two surfaces in one layer, the one that enters later lies below the other. sway did so until
  /// it offered version 6 of the compositor.
  [[nodiscard]] bool stacksNewestLowest() const;
  [[nodiscard]] MainLoop& loop() { return loop_; }
  /// Those whose description is complete, the main one marked, in the compositor's order.
  [[nodiscard]] std::vector<Screen> screens() const;
  /// As that of OverlayBackend.
  [[nodiscard]] std::string limitation() const { return isUsable() ? "" : "error_no_overlay"; }
  /// Null when there is none. Who shows something on it holds it, because it may go a turn before that does.
  [[nodiscard]] std::shared_ptr<const WaylandOutput> output(std::uint64_t screenId) const;
  /// As OverlayBackend has it; surfaces look before they show what came meanwhile.
  void setHeld(bool held) { held_ = held; }
  [[nodiscard]] bool isHeld() const { return held_; }
  /// Whether the compositor hangs and takes nothing; `changed` is told when it does again.
  [[nodiscard]] bool isFull() const { return connection_->full(); }
  void flush() const { wl_display_flush(connection_->get()); }

 private:
  /// How far we have come to know the compositor.
  enum class Stage { asking, usable, useless };

  WaylandDesktop(MainLoop& loop, DesktopHandlers handlers) : loop_(loop), handlers_(std::move(handlers)) {}

  [[nodiscard]] bool connect(const std::string& display);
  void appeared(std::uint32_t name, std::string_view interface, std::uint32_t version);
  void removed(std::uint32_t name);
  void offersKnown();
  void addOutputs();
  void announce();
  void lose();

  MainLoop& loop_;
  const DesktopHandlers handlers_;
  std::unique_ptr<WaylandConnection> connection_;
  WaylandGlobals globals_;
  Stage stage_ = Stage::asking;
  bool held_ = false;
  std::optional<WaylandPalette> palette_;
  std::optional<WaylandClicks> clicks_;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> offeredOutputs_;  // name and version, not yet in use
  std::vector<std::shared_ptr<WaylandOutput>> outputs_;
  Registration change_;
  Registration loss_;
};

}  // namespace sentrel
