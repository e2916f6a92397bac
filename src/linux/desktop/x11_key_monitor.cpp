// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/x11_key_monitor.h"

#include <xcb/xinput.h>

#include <cstring>
#include <tuple>
#include <utility>

#include "linux/desktop/xkb_headers.h"

namespace sentrel {

namespace {

/// Since XInput 2.1 raw events come also while another program has grabbed the keyboard.
constexpr auto neededInput = std::tuple(2, 1);

bool speaksInput(xcb_connection_t* connection) {
  const XReply<xcb_input_xi_query_version_reply_t> version(
      xcb_input_xi_query_version_reply(connection, xcb_input_xi_query_version(connection, 2, 2), nullptr));
  return version && std::tuple(version->major_version, version->minor_version) >= neededInput;
}

bool speaksKeyboard(xcb_connection_t* connection) {
  const XReply<xcb_xkb_use_extension_reply_t> answer(
      xcb_xkb_use_extension_reply(connection, xcb_xkb_use_extension(connection, 1, 0), nullptr));
  return answer && answer->supported != 0;
}

bool has(xcb_connection_t* connection, xcb_extension_t* id) {
  const auto* extension = xcb_get_extension_data(connection, id);
  return extension != nullptr && extension->present != 0;
}

bool canTellKeys(xcb_connection_t* connection) {
  return has(connection, &xcb_input_id) && has(connection, &xcb_xkb_id) && speaksInput(connection) &&
         speaksKeyboard(connection);
}

template <class Event>
Event as(const xcb_generic_event_t& event) {
  Event result{};
  std::memcpy(&result, &event, sizeof result);
  return result;
}

}  // namespace

bool X11KeyMonitor::isPossible() {
  const auto server = X11ObserverConnection::open();
  return server && canTellKeys(server->get());
}

X11KeyMonitor::X11KeyMonitor(std::function<void()> pressed)
    : pressed_(std::move(pressed)), server_(X11ObserverConnection::open()) {
  if (!server_ || !canTellKeys(server_->get())) {
    server_.reset();
    return;
  }
  inputOpcode_ = xcb_get_extension_data(server_->get(), &xcb_input_id)->major_opcode;
  keyboardEvent_ = xcb_get_extension_data(server_->get(), &xcb_xkb_id)->first_event;
  selectKeys();
  server_->observe([this](const xcb_generic_event_t& event) { handle(event); }, [] {});
  keyboardChanged();
}

void X11KeyMonitor::selectKeys() {
  constexpr std::uint16_t mapping = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
  constexpr std::uint16_t everyMapPart = 0xff;
  // Of the state only what counts: pointer buttons belong to it too and would wake us with each click.
  constexpr std::uint16_t parts = XCB_XKB_STATE_PART_MODIFIER_STATE | XCB_XKB_STATE_PART_GROUP_STATE;
  xcb_xkb_select_events_details_t details{};
  details.affectState = parts;
  details.stateDetails = parts;
  xcb_xkb_select_events_aux(server_->get(), XCB_XKB_ID_USE_CORE_KBD,
                            mapping | XCB_XKB_EVENT_TYPE_STATE_NOTIFY, 0, mapping, everyMapPart, everyMapPart,
                            &details);
  const struct {
    xcb_input_event_mask_t head;
    std::uint32_t mask;
  } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS};
  xcb_input_xi_select_events(server_->get(), server_->root(), 1, &selection.head);
}

void X11KeyMonitor::keyboardChanged() {
  keys_.read(server_->get());
  const XReply<xcb_xkb_get_state_reply_t> state(xcb_xkb_get_state_reply(
      server_->get(), xcb_xkb_get_state(server_->get(), XCB_XKB_ID_USE_CORE_KBD), nullptr));
  if (state) {
    modifiers_ = state->mods;
    group_ = state->group;
  }
  server_->dispatch();
}

void X11KeyMonitor::handle(const xcb_generic_event_t& event) {
  const std::uint8_t type = event.response_type & 0x7f;
  if (type == XCB_GE_GENERIC) {
    const auto key = as<xcb_input_raw_key_press_event_t>(event);
    if (key.extension != inputOpcode_ || key.event_type != XCB_INPUT_RAW_KEY_PRESS) return;
    if ((key.flags & XCB_INPUT_KEY_EVENT_FLAGS_KEY_REPEAT) != 0) return;
    if (keys_.isShortcut(key.detail, modifiers_, group_)) pressed_();
  } else if (type == keyboardEvent_) {
    // All events of the keyboard extension share one number; the second byte tells them apart.
    const auto state = as<xcb_xkb_state_notify_event_t>(event);
    if (state.xkbType == XCB_XKB_STATE_NOTIFY) {
      modifiers_ = state.mods;
      group_ = state.group;
    } else {
      keyboardChanged();
    }
  } else if (type == XCB_MAPPING_NOTIFY) {
    keyboardChanged();
  }
}

}  // namespace sentrel
