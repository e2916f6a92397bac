// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSocketNotifier>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include <xcb/xcb.h>

namespace sentrel {

struct X11Free {
  void operator()(void* memory) const { std::free(memory); }  // NOLINT: xcb hands out malloc'ed memory
};

/// A reply, an event or an error of the X server; null when there is none.
template <class T>
using X11Reply = std::unique_ptr<T, X11Free>;

template <class T>
X11Reply<T> adopt(T* reply) {
  return X11Reply<T>(reply);
}

/// A connection of our own to an X server, beside any that a toolkit has: a connection that breaks must never
/// end the process, and clicks and redraws of windows must not wait for each other. Requests on a broken
/// connection do nothing, replies are null. Lives on the thread that opened it, which has a Qt event loop.
class X11Connection {
 public:
  using EventHandler = std::function<void(const xcb_generic_event_t&)>;

  /// `display` as in DISPLAY, whose value is taken where this is empty. Null when the server cannot be
  /// reached.
  [[nodiscard]] static std::unique_ptr<X11Connection> open(const std::string& display = {});

  /// From now on hands on each event as it comes, also those that a reply has left in the queue, and sends
  /// what was requested before the event loop goes to sleep. `onBroken` is called once, when the connection
  /// is found broken; it must not destroy this.
  void run(EventHandler onEvent, std::function<void()> onBroken);

  [[nodiscard]] xcb_connection_t* get() const { return connection_.get(); }
  [[nodiscard]] const xcb_screen_t& screen() const { return *screen_; }
  [[nodiscard]] int screenNumber() const { return screenNumber_; }
  [[nodiscard]] xcb_window_t root() const { return screen_->root; }
  [[nodiscard]] bool broken() const { return xcb_connection_has_error(get()) != 0; }
  /// Null where the server lacks it.
  [[nodiscard]] const xcb_query_extension_reply_t* extension(xcb_extension_t& id) const;

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };

  X11Connection() = default;
  void readSocket();
  void beforeSleep();
  void checkConnection();

  std::unique_ptr<xcb_connection_t, Disconnect> connection_;
  int screenNumber_ = 0;
  const xcb_screen_t* screen_ = nullptr;
  EventHandler onEvent_;
  std::function<void()> onBroken_;
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace sentrel
