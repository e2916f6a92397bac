// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <xcb/xcb.h>

#include <QSocketNotifier>
#include <cstdlib>
#include <functional>
#include <memory>

namespace sentrel {

/// Frees what the X library allocated.
struct XFree {
  void operator()(void* pointer) const { std::free(pointer); }
};
template <class T>
using XReply = std::unique_ptr<T, XFree>;

/// A connection to the X server that only observes. Lives on an event thread, where it may wait for replies.
class X11ObserverConnection {
 public:
  /// The server of `DISPLAY`, or null when there is none.
  [[nodiscard]] static std::unique_ptr<X11ObserverConnection> open();

  /// Starts handing on events. `lost` is told once, when the server has gone.
  void observe(std::function<void(const xcb_generic_event_t&)> event, std::function<void()> lost);

  /// Hands on events that came while a reply was waited for; to be called after each reply.
  void dispatch();

  [[nodiscard]] xcb_connection_t* get() const { return connection_.get(); }
  [[nodiscard]] xcb_window_t root() const { return root_; }

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };

  X11ObserverConnection() = default;

  std::unique_ptr<xcb_connection_t, Disconnect> connection_;
  xcb_window_t root_ = XCB_NONE;
  std::function<void(const xcb_generic_event_t&)> event_;
  std::function<void()> lost_;
  std::unique_ptr<QSocketNotifier> readable_;
};

}  // namespace sentrel
