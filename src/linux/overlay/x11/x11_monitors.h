// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/display/x11_connection.h"
#include "platform/overlay_surface.h"

namespace sentrel {

/// A monitor as the server tells it.
struct X11MonitorInfo {
  std::string name;
  Rect pixels;
  int widthMillimetres = 0;  ///< 0 when unknown
  bool primary = false;
};

/// A monitor as the overlay uses it.
struct X11Monitor {
  Screen screen;
  Rect pixels;       ///< device pixels
  double scale = 1;  ///< device pixels to a logical one
  bool operator==(const X11Monitor&) const = default;
};

/// Names, numbers and scales the monitors. One that lies within another shows the same picture and is left
/// out: covering it twice would darken it twice. `dpi` is the desktop's setting, 96 for a scale of 1; without
/// one the density of the monitor decides, carefully, in whole steps.
[[nodiscard]] std::vector<X11Monitor> arrangeMonitors(const std::vector<X11MonitorInfo>& monitors,
                                                      std::optional<double> dpi);

/// The value of Xft.dpi in the text of the resource manager, where it is a sane one.
[[nodiscard]] std::optional<double> parseXftDpi(std::string_view resources);

/// Asks the server. Empty when the connection is broken. Main thread.
[[nodiscard]] std::vector<X11Monitor> readMonitors(const X11Connection& connection);

}  // namespace sentrel
