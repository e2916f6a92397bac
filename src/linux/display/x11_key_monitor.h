// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>

#include "linux/display/x11_connection.h"

namespace sentrel {

/// Observes Super+Shift with the key that carries a letter, under each of the layouts that the person can
/// switch between, through raw key events. It also grabs these keys, so that the letter is not typed into the
/// program that has the focus; where another program has grabbed them before, or a further modifier is held,
/// it only observes. Lives on a thread with a Qt event loop, which may wait for the server.
class X11KeyMonitor {
 public:
  /// Whether the X server of DISPLAY can tell keys: XInput 2.1 and the keyboard extension.
  [[nodiscard]] static bool isPossible();

  enum class Letter { c, v };

  /// `pressed` is called on this thread.
  X11KeyMonitor(Letter letter, std::function<void()> pressed);

 private:
  void selectKeys();
  void handle(const xcb_generic_event_t& event);
  void keyboardChanged();
  void readKeys();
  void grabKeys();
  [[nodiscard]] bool isModified() const;
  [[nodiscard]] std::set<xcb_keycode_t> carrying() const;

  static constexpr std::size_t groupCount = 2;  // as many layouts as the core keyboard map tells

  const std::size_t letter_;
  std::function<void()> pressed_;
  std::unique_ptr<X11Connection> server_;
  std::uint8_t inputOpcode_ = 0;
  std::uint8_t keyboardEvent_ = 0;
  std::array<std::set<xcb_keycode_t>, groupCount> carrying_;  // by layout
  std::uint8_t superMask_ = XCB_MOD_MASK_4;
  std::uint8_t lockMask_ = XCB_MOD_MASK_LOCK;  // modifiers that stay, and change no shortcut
  // As the server told last; in order with the keys, so that a quick hand is read right.
  std::uint8_t modifiers_ = 0;  // core modifier bits
  std::uint8_t group_ = 0;      // the layout, 0 based
};

}  // namespace sentrel
