// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "linux/overlay/x11/x11_connection.h"
#include "linux/overlay/x11/x11_monitors.h"

namespace sentrel {

/// What lets clicks through a window of ours that has an empty input shape.
enum class ClickThrough {
  inputShape,  ///< the X server itself, where it is the one that hands out clicks
  /// Mutter, as the Wayland compositor behind the server, but only while each picture that it gets of the
  /// window has another size than the one before. Up to its version 44.8 a picture makes it forget the shape,
  /// and it asks for the shape again only when the size has changed.
  newSizes,
  nothing,  ///< a Wayland compositor of which it is not known
};

/// Asks the server, whose monitors these are.
[[nodiscard]] ClickThrough findClickThrough(const X11Connection& connection,
                                            const std::vector<X11Monitor>& monitors);

}  // namespace sentrel
