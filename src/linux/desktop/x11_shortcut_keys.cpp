// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/x11_shortcut_keys.h"

#include <algorithm>
#include <span>

#include "linux/desktop/x11_observer_connection.h"

namespace sentrel {

namespace {

// Keyboard symbols, from the X protocol's keysym encoding.
constexpr xcb_keysym_t smallC = 0x63;
constexpr xcb_keysym_t leftSuper = 0xffeb;
constexpr xcb_keysym_t rightSuper = 0xffec;

/// Where C is on the keys of an ordinary keyboard, for layouts without the letter (evdev code 46 plus 8).
constexpr xcb_keycode_t usualKey = 54;

constexpr std::size_t modifierCount = 8;

}  // namespace

void X11ShortcutKeys::read(xcb_connection_t* connection) {
  const xcb_setup_t* setup = xcb_get_setup(connection);
  const auto first = setup->min_keycode;
  const auto count = static_cast<std::uint8_t>(setup->max_keycode - first + 1);
  const auto keysCookie = xcb_get_keyboard_mapping(connection, first, count);
  const auto modifiersCookie = xcb_get_modifier_mapping(connection);
  const XReply<xcb_get_keyboard_mapping_reply_t> keys(
      xcb_get_keyboard_mapping_reply(connection, keysCookie, nullptr));
  const XReply<xcb_get_modifier_mapping_reply_t> modifiers(
      xcb_get_modifier_mapping_reply(connection, modifiersCookie, nullptr));
  if (!keys || !modifiers || keys->keysyms_per_keycode == 0) return;

  const std::span symbols(xcb_get_keyboard_mapping_keysyms(keys.get()),
                          static_cast<std::size_t>(xcb_get_keyboard_mapping_keysyms_length(keys.get())));
  const std::size_t perKey = keys->keysyms_per_keycode;
  std::set<xcb_keycode_t> superKeys;
  for (auto& group : carryC_) group.clear();
  for (std::size_t i = 0; i < symbols.size(); ++i) {
    const auto keycode = static_cast<xcb_keycode_t>(first + i / perKey);
    const std::size_t column = i % perKey;
    // Two columns (plain, shifted) for each layout.
    if (symbols[i] == smallC && column % 2 == 0 && column / 2 < groupCount)
      carryC_[column / 2].insert(keycode);
    if (symbols[i] == leftSuper || symbols[i] == rightSuper) superKeys.insert(keycode);
  }

  const std::span owners(xcb_get_modifier_mapping_keycodes(modifiers.get()),
                         static_cast<std::size_t>(xcb_get_modifier_mapping_keycodes_length(modifiers.get())));
  const std::size_t perModifier = owners.size() / modifierCount;
  std::uint8_t mask = 0;
  for (std::size_t i = 0; i < owners.size(); ++i) {
    if (superKeys.contains(owners[i])) mask = static_cast<std::uint8_t>(mask | 1U << i / perModifier);
  }
  superMask_ = mask != 0 ? mask : static_cast<std::uint8_t>(XCB_MOD_MASK_4);
}

bool X11ShortcutKeys::isShortcut(std::uint32_t keycode, std::uint8_t modifiers, std::uint8_t group) const {
  if ((modifiers & XCB_MOD_MASK_SHIFT) == 0 || (modifiers & superMask_) == 0) return false;
  // A layout without a C (Greek, Cyrillic) stands beside one that has it.
  const auto& active = carryC_[std::min<std::size_t>(group, groupCount - 1)];
  const auto& keys = active.empty() ? carryC_[0] : active;
  return keys.empty() ? keycode == usualKey
                      : keycode <= 0xff && keys.contains(static_cast<xcb_keycode_t>(keycode));
}

}  // namespace sentrel
