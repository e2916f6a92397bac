// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <xcb/xcb.h>

#include "linux/overlay/x11/x11_connection.h"

namespace sentrel {

/// Finds out whether a compositing manager has really taken over the windows. It owns its selection some time
/// before that, and a translucent window mapped in between would be black. The probe is one invisible window
/// beyond the corner of the screen. Main thread.
class X11RedirectionProbe {
 public:
  explicit X11RedirectionProbe(const X11Connection& connection);
  ~X11RedirectionProbe();
  X11RedirectionProbe(const X11RedirectionProbe&) = delete;
  X11RedirectionProbe& operator=(const X11RedirectionProbe&) = delete;

  /// Waits for the server's answer.
  [[nodiscard]] bool isRedirected() const;

 private:
  const X11Connection& connection_;
  xcb_window_t window_;
};

}  // namespace sentrel
