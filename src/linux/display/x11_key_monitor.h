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

/// Observes Super+Shift with the keys that carry C and V, under each of the layouts that the person can
/// switch between, through raw key events, which take nothing away from the program that has the focus. Lives
/// on a thread with a Qt event loop, which may wait for the server.
class X11KeyMonitor {
 public:
  /// Whether the X server of DISPLAY can tell keys: XInput 2.1 and the keyboard extension.
  [[nodiscard]] static bool isPossible();

  enum class Letter { c, v };

  /// `pressed` is called on this thread.
  explicit X11KeyMonitor(std::function<void(Letter)> pressed);

 private:
  void selectKeys();
  void handle(const xcb_generic_event_t& event);
  void keyboardChanged();
  void readKeys();
  [[nodiscard]] bool isModified() const;
  [[nodiscard]] bool carries(std::size_t letter, std::uint32_t keycode) const;

  static constexpr std::size_t groupCount = 2;  // as many layouts as the core keyboard map tells

  static constexpr std::size_t letterCount = 2;

  std::function<void(Letter)> pressed_;
  std::unique_ptr<X11Connection> server_;
  std::uint8_t inputOpcode_ = 0;
  std::uint8_t keyboardEvent_ = 0;
  std::array<std::array<std::set<xcb_keycode_t>, groupCount>, letterCount> carrying_;  // by letter and layout
  std::uint8_t superMask_ = XCB_MOD_MASK_4;
  // As the server told last; in order with the keys, so that a quick hand is read right.
  std::uint8_t modifiers_ = 0;  // core modifier bits
  std::uint8_t group_ = 0;      // the layout, 0 based
};

}  // namespace sentrel
