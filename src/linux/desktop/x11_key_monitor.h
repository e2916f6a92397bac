// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "linux/desktop/x11_observer_connection.h"
#include "linux/desktop/x11_shortcut_keys.h"

namespace sentrel {

/// Observes the shortcut through raw key events, which take nothing away from the program that has the focus.
/// Lives on an event thread.
class X11KeyMonitor {
 public:
  /// Whether the X server of `DISPLAY` can tell keys: XInput 2.1 and the keyboard extension.
  [[nodiscard]] static bool isPossible();

  /// `pressed` is called on this thread.
  explicit X11KeyMonitor(std::function<void()> pressed);

 private:
  void selectKeys();
  void handle(const xcb_generic_event_t& event);
  void keyboardChanged();

  std::function<void()> pressed_;
  std::unique_ptr<X11ObserverConnection> server_;
  std::uint8_t inputOpcode_ = 0;
  std::uint8_t keyboardEvent_ = 0;
  X11ShortcutKeys keys_;
  // As the server told last; in order with the keys, so that a quick hand is read right.
  std::uint8_t modifiers_ = 0;
  std::uint8_t group_ = 0;
};

}  // namespace sentrel
