// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <wayland-client.h>

#include <QObject>
#include <QSocketNotifier>
#include <functional>

namespace sentrel {

/// Drives a connection from the Qt event loop: dispatches events as they come and sends what was requested
/// before the loop goes to sleep. Main thread.
class WaylandEventPump {
 public:
  /// `onBroken` is called once, when the connection is found broken; the pump rests from then on. It must not
  /// destroy the pump.
  WaylandEventPump(wl_display* display, std::function<void()> onBroken);

 private:
  void readSocket();
  void dispatchAndSend();

  wl_display* display_;
  std::function<void()> onBroken_;
  QSocketNotifier readable_;
  QSocketNotifier writable_;  // only while the socket is full
  QObject context_;
};

}  // namespace sentrel
