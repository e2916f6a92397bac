// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>

#include <xcb/xcb.h>

#include "linux/overlay/x11/x11_connection.h"
#include "linux/overlay/x11/x11_redirection_probe.h"
#include "support/main_loop.h"

namespace sentrel {

/// Whether a compositing manager blends translucent windows, as it comes and goes. Main thread.
class X11CompositorWatch {
 public:
  X11CompositorWatch(const X11Connection& connection, MainLoop& loop, std::function<void()> onChange);

  [[nodiscard]] bool isRunning() const { return running_; }

  /// Any event of the connection.
  void handle(const xcb_generic_event_t& event);

 private:
  void awaitRedirection(int triesLeft);
  void setRunning(bool running);

  const X11Connection& connection_;
  MainLoop& loop_;
  std::function<void()> onChange_;
  bool running_ = false;
  std::optional<X11RedirectionProbe> probe_;
  Registration nextTry_;
};

}  // namespace sentrel
