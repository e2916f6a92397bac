// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QTimer>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "linux/display/wayland_connection.h"
#include "linux/display/x11_connection.h"

namespace sentrel {

/// Hears whether the displays are off, news or not, and nothing when the display server has gone; on the
/// thread of who tells it.
using DisplayPowerObserver = std::function<void(std::optional<bool> off)>;

/// The X server of DISPLAY about the power of the displays (DPMS). Servers since 2021 tell each change (DPMS
/// 1.2); older ones are asked. Lives on a thread with a Qt event loop, which may wait for the server.
class X11DisplayPower {
 public:
  explicit X11DisplayPower(DisplayPowerObserver observer);

  /// Whether a server that does not tell changes is asked for them: at once and every 20 s.
  void setPolling(bool wanted);

 private:
  [[nodiscard]] bool prepare();
  void selectEvents();
  void handle(const xcb_generic_event_t& event);
  void ask();

  DisplayPowerObserver observer_;
  std::unique_ptr<X11Connection> server_;
  std::uint8_t opcode_ = 0;
  bool tellsChanges_ = false;
  QTimer poll_;
};

/// A wlroots compositor or KWin about the power of its outputs, on a connection of its own that is closed at
/// once where the compositor cannot tell. Lives on a thread with a Qt event loop.
class WaylandDisplayPower {
 public:
  explicit WaylandDisplayPower(DisplayPowerObserver observer);
  WaylandDisplayPower(const WaylandDisplayPower&) = delete;
  WaylandDisplayPower& operator=(const WaylandDisplayPower&) = delete;

 private:
  struct Output {
    WaylandDisplayPower& owner;
    std::uint32_t name;
    WaylandObject<wl_output> output;
    WaylandObject<zwlr_output_power_v1> power = nullptr;
    WaylandObject<org_kde_kwin_dpms> kwinPower = nullptr;
    std::optional<bool> on = std::nullopt;
  };

  void appeared(std::uint32_t name, std::string_view interface);
  void removed(std::uint32_t name);
  [[nodiscard]] bool canTell() const { return manager_ || kwinManager_; }
  void watch(Output& output);
  void watchKwin(Output& output);
  void evaluate();

  DisplayPowerObserver observer_;
  std::unique_ptr<WaylandConnection> compositor_;
  WaylandObject<zwlr_output_power_manager_v1> manager_;
  WaylandObject<org_kde_kwin_dpms_manager> kwinManager_;
  std::vector<std::unique_ptr<Output>> outputs_;
  bool listed_ = false;
  bool hadOutput_ = false;
  QTimer closing_;
};

}  // namespace sentrel
