// SPDX-License-Identifier: Apache-2.0
#include "linux/display/x11_key_monitor.h"

#include <xcb/xinput.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

// The X library's C header of the keyboard extension has a field with the name of a C++ keyword.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

namespace sentrel {

namespace {

// Keyboard symbols, from the X protocol's keysym encoding.
constexpr std::array<xcb_keysym_t, 2> smallLetters{0x63, 0x76};  // c, v
constexpr xcb_keysym_t leftSuper = 0xffeb;
constexpr xcb_keysym_t rightSuper = 0xffec;
constexpr xcb_keysym_t numLock = 0xff7f;
constexpr xcb_keysym_t scrollLock = 0xff14;

/// Where they are on the keys of an ordinary keyboard, for layouts without the letter (evdev codes 46 and 47
/// plus 8).
constexpr std::array<xcb_keycode_t, 2> usualKeys{54, 55};

constexpr std::size_t modifierCount = 8;

/// Since XInput 2.1 raw events come also while another program has grabbed the keyboard.
constexpr auto neededInput = std::tuple(2, 1);

bool canTellKeys(const X11Connection& server) {
  if (server.extension(xcb_input_id) == nullptr || server.extension(xcb_xkb_id) == nullptr) return false;
  const auto input = adopt(xcb_input_xi_query_version_reply(
      server.get(), xcb_input_xi_query_version(server.get(), 2, 2), nullptr));
  const auto keyboard =
      adopt(xcb_xkb_use_extension_reply(server.get(), xcb_xkb_use_extension(server.get(), 1, 0), nullptr));
  return input && std::tuple(input->major_version, input->minor_version) >= neededInput && keyboard &&
         keyboard->supported != 0;
}

template <class Event>
Event as(const xcb_generic_event_t& event) {
  Event result{};
  std::memcpy(&result, &event, sizeof result);
  return result;
}

}  // namespace

bool X11KeyMonitor::isPossible() {
  const auto server = X11Connection::open();
  return server && canTellKeys(*server);
}

X11KeyMonitor::X11KeyMonitor(Letter letter, std::function<void()> pressed)
    : letter_(static_cast<std::size_t>(letter)),
      pressed_(std::move(pressed)),
      server_(X11Connection::open()) {
  if (!server_ || !canTellKeys(*server_)) {
    server_.reset();
    return;
  }
  inputOpcode_ = server_->extension(xcb_input_id)->major_opcode;
  keyboardEvent_ = server_->extension(xcb_xkb_id)->first_event;
  selectKeys();
  server_->run([this](const xcb_generic_event_t& event) { handle(event); }, [] {});
  keyboardChanged();
}

void X11KeyMonitor::selectKeys() {
  constexpr std::uint16_t mapping = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
  constexpr std::uint16_t wholeMap = 0xff;
  // Of the state only what counts: pointer buttons belong to it too and would wake us with each click.
  constexpr std::uint16_t counted = XCB_XKB_STATE_PART_MODIFIER_STATE | XCB_XKB_STATE_PART_GROUP_STATE;
  xcb_xkb_select_events_details_t details{};
  details.affectState = counted;
  details.stateDetails = counted;
  xcb_xkb_select_events_aux(server_->get(), XCB_XKB_ID_USE_CORE_KBD,
                            mapping | XCB_XKB_EVENT_TYPE_STATE_NOTIFY, 0, mapping, wholeMap, wholeMap,
                            &details);
  const struct {
    xcb_input_event_mask_t head;
    std::uint32_t mask;
  } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS};
  xcb_input_xi_select_events(server_->get(), server_->root(), 1, &selection.head);
}

void X11KeyMonitor::keyboardChanged() {
  readKeys();
  const auto state = adopt(xcb_xkb_get_state_reply(
      server_->get(), xcb_xkb_get_state(server_->get(), XCB_XKB_ID_USE_CORE_KBD), nullptr));
  if (state) {
    modifiers_ = state->mods;
    group_ = state->group;
  }
  grabKeys();
}

/// Waits for the server's answer.
void X11KeyMonitor::readKeys() {
  xcb_connection_t* connection = server_->get();
  const xcb_setup_t* setup = xcb_get_setup(connection);
  const auto first = setup->min_keycode;
  const auto count = static_cast<std::uint8_t>(setup->max_keycode - first + 1);
  const auto keysCookie = xcb_get_keyboard_mapping(connection, first, count);
  const auto modifiersCookie = xcb_get_modifier_mapping(connection);
  const auto keys = adopt(xcb_get_keyboard_mapping_reply(connection, keysCookie, nullptr));
  const auto modifiers = adopt(xcb_get_modifier_mapping_reply(connection, modifiersCookie, nullptr));
  if (!keys || !modifiers || keys->keysyms_per_keycode == 0) return;

  const std::span symbols(xcb_get_keyboard_mapping_keysyms(keys.get()),
                          static_cast<std::size_t>(xcb_get_keyboard_mapping_keysyms_length(keys.get())));
  const std::size_t perKey = keys->keysyms_per_keycode;
  std::set<xcb_keycode_t> superKeys;
  std::set<xcb_keycode_t> lockKeys;
  carrying_ = {};
  for (std::size_t i = 0; i < symbols.size(); ++i) {
    const auto keycode = static_cast<xcb_keycode_t>(first + i / perKey);
    const std::size_t column = i % perKey;
    // Two columns (plain, shifted) for each layout.
    if (symbols[i] == smallLetters[letter_] && column % 2 == 0 && column / 2 < groupCount)
      carrying_[column / 2].insert(keycode);
    if (symbols[i] == leftSuper || symbols[i] == rightSuper) superKeys.insert(keycode);
    if (symbols[i] == numLock || symbols[i] == scrollLock) lockKeys.insert(keycode);
  }

  const std::span owners(xcb_get_modifier_mapping_keycodes(modifiers.get()),
                         static_cast<std::size_t>(xcb_get_modifier_mapping_keycodes_length(modifiers.get())));
  const std::size_t perModifier = owners.size() / modifierCount;
  const auto maskOf = [&](const std::set<xcb_keycode_t>& wanted, unsigned mask) {
    for (std::size_t i = 0; i < owners.size(); ++i) {
      if (wanted.contains(owners[i])) mask |= 1U << i / perModifier;
    }
    return static_cast<std::uint8_t>(mask);
  };
  const std::uint8_t mask = maskOf(superKeys, 0);
  superMask_ = mask != 0 ? mask : static_cast<std::uint8_t>(XCB_MOD_MASK_4);
  lockMask_ = maskOf(lockKeys, XCB_MOD_MASK_LOCK);
}

/// In place of what was grabbed before. Raw events tell of a press even so: they come before the grab begins.
void X11KeyMonitor::grabKeys() {
  xcb_connection_t* connection = server_->get();
  std::vector<xcb_void_cookie_t> cookies;
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
  for (; screens.rem > 0; xcb_screen_next(&screens)) {
    const xcb_window_t root = screens.data->root;
    xcb_ungrab_key(connection, XCB_GRAB_ANY, root, XCB_MOD_MASK_ANY);
    for (const xcb_keycode_t key : carrying()) {
      for (unsigned super = 1; super <= superMask_; super <<= 1U) {
        if ((super & superMask_) == 0) continue;
        // Every subset of the locks.
        for (unsigned locks = lockMask_;; locks = (locks - 1) & lockMask_) {
          const auto modifiers = static_cast<std::uint16_t>(XCB_MOD_MASK_SHIFT | super | locks);
          cookies.push_back(xcb_grab_key_checked(connection, 1, root, modifiers, key, XCB_GRAB_MODE_ASYNC,
                                                 XCB_GRAB_MODE_ASYNC));
          if (locks == 0) break;
        }
      }
    }
  }
  // Refused are those that another program has grabbed.
  for (const auto& cookie : cookies) adopt(xcb_request_check(connection, cookie));
}

/// Further modifiers do not matter.
bool X11KeyMonitor::isModified() const {
  return (modifiers_ & XCB_MOD_MASK_SHIFT) != 0 && (modifiers_ & superMask_) != 0;
}

/// The keys that count under the present layout.
std::set<xcb_keycode_t> X11KeyMonitor::carrying() const {
  // A layout without the letter (Greek, Cyrillic) stands beside one that has it.
  const auto& active = carrying_[std::min<std::size_t>(group_, groupCount - 1)];
  const auto& keys = active.empty() ? carrying_[0] : active;
  return keys.empty() ? std::set{usualKeys[letter_]} : keys;
}

void X11KeyMonitor::handle(const xcb_generic_event_t& event) {
  const std::uint8_t type = event.response_type & 0x7f;
  if (type == XCB_GE_GENERIC) {
    const auto key = as<xcb_input_raw_key_press_event_t>(event);
    if (key.extension != inputOpcode_ || key.event_type != XCB_INPUT_RAW_KEY_PRESS) return;
    if ((key.flags & XCB_INPUT_KEY_EVENT_FLAGS_KEY_REPEAT) != 0) return;
    if (isModified() && key.detail <= 0xff && carrying().contains(static_cast<xcb_keycode_t>(key.detail)))
      pressed_();
  } else if (type == keyboardEvent_) {
    // All events of the keyboard extension share one number; the second byte tells them apart.
    const auto state = as<xcb_xkb_state_notify_event_t>(event);
    if (state.xkbType == XCB_XKB_STATE_NOTIFY) {
      modifiers_ = state.mods;
      if (std::exchange(group_, state.group) != state.group) grabKeys();
    } else {
      keyboardChanged();
    }
  } else if (type == XCB_MAPPING_NOTIFY) {
    keyboardChanged();
  }
}

}  // namespace sentrel
