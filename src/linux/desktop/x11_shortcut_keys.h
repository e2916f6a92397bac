// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <xcb/xcb.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>

namespace sentrel {

/// Which keys of the X keyboard make up Super+Shift+C under each of the layouts that the person can switch
/// between.
class X11ShortcutKeys {
 public:
  /// Reads the keyboard of the server; waits for its answer.
  void read(xcb_connection_t* connection);

  /// Whether pressing `keycode` while `modifiers` (core modifier bits) and the layout `group` (0 based) are
  /// in effect is the shortcut. Further modifiers do not matter.
  [[nodiscard]] bool isShortcut(std::uint32_t keycode, std::uint8_t modifiers, std::uint8_t group) const;

 private:
  static constexpr std::size_t groupCount = 2;  // as many as the core keyboard map tells

  std::array<std::set<xcb_keycode_t>, groupCount> carryC_;
  std::uint8_t superMask_ = XCB_MOD_MASK_4;
};

}  // namespace sentrel
