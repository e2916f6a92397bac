// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <functional>

#include <xcb/xcb.h>

namespace sentrel {

/// Drives a connection from the Qt event loop: hands on each event as it comes, flushes what was requested
/// before the loop goes to sleep, and reads what a reply has left in the queue meanwhile, which no socket
/// would announce. Main thread.
class X11EventPump {
 public:
  using EventHandler = std::function<void(const xcb_generic_event_t&)>;

  /// `onBroken` is called once, when the connection is found broken; the pump rests from then on. It must not
  /// destroy the pump.
  X11EventPump(xcb_connection_t* connection, EventHandler onEvent, std::function<void()> onBroken);

 private:
  void readSocket();
  void beforeSleep();
  void checkConnection();

  xcb_connection_t* connection_;
  EventHandler onEvent_;
  std::function<void()> onBroken_;
  QSocketNotifier notifier_;
  QObject context_;
};

}  // namespace sentrel
