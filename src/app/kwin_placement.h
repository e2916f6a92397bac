// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>
#include <cstdint>

#include "linux/display/wayland_connection.h"

namespace sentrel {

/// Opens windows at the pointer under KWin on Wayland, where no program places its windows itself: a window
/// that is opened by a click on the panel then stands next to what was clicked. Does nothing elsewhere.
/// Main thread.
class KwinPlacement {
 public:
  /// Asks the compositor of the application, whose answer comes with the event loop.
  KwinPlacement();
  KwinPlacement(const KwinPlacement&) = delete;
  KwinPlacement& operator=(const KwinPlacement&) = delete;

  /// For a window that has not been shown yet. It stays out of lists of windows, too.
  void openAtPointer(QWidget& window);
  /// To be called before that window closes.
  void release() { placed_.reset(); }

 private:
  void appeared(std::uint32_t name, std::uint32_t version);

  WaylandObject<wl_registry> registry_;
  WaylandObject<org_kde_plasma_shell> shell_;
  WaylandObject<org_kde_plasma_surface> placed_;
};

}  // namespace sentrel
