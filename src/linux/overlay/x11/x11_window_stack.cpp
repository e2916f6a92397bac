// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_window_stack.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "linux/overlay/x11/x11_desktop.h"

namespace sentrel {

namespace {

// Long enough for a window that comes with several requests, too short to be seen.
constexpr std::chrono::milliseconds settleTime{15};
constexpr std::chrono::milliseconds leastRaiseInterval{100};

// The window that may have come above ours, or none.
xcb_window_t restackedWindow(const xcb_generic_event_t& event) {
  switch (event.response_type & 0x7FU) {
    case XCB_MAP_NOTIFY:
    case XCB_CONFIGURE_NOTIFY:
    case XCB_CIRCULATE_NOTIFY:
    case XCB_REPARENT_NOTIFY:
      return reinterpret_cast<const xcb_map_notify_event_t&>(event).window;  // as the others have it
    default:
      return XCB_NONE;
  }
}

}  // namespace

void X11WindowStack::add(xcb_window_t window, X11Layer layer) {
  const auto above =
      std::ranges::find_if(entries_, [layer](const Entry& entry) { return entry.layer > layer; });
  entries_.insert(above, {window, layer});
  if (entries_.size() == 1) desktop_.setWatchful(true);
}

void X11WindowStack::remove(xcb_window_t window) {
  std::erase_if(entries_, [window](const Entry& entry) { return entry.window == window; });
  if (!entries_.empty()) return;
  timer_.reset();
  desktop_.setWatchful(false);
}

void X11WindowStack::map(xcb_window_t window) {
  raise();
  xcb_map_window(desktop_.get(), window);
  lastMapped_ = window;
}

void X11WindowStack::setHeld(bool held) {
  held_ = held;
  held ? timer_.reset() : raiseSoon();
}

// From the top down, each below the one before: in this order no window of ours ever covers another that
// belongs above it, and where all are in place already the server does nothing and tells nobody.
void X11WindowStack::raise() {
  timer_.reset();
  lastRaise_ = SteadyClock::now();
  xcb_window_t above = XCB_NONE;
  std::for_each(entries_.rbegin(), entries_.rend(), [&](const Entry& entry) {
    if (above == XCB_NONE) {
      const std::uint32_t mode = XCB_STACK_MODE_ABOVE;
      xcb_configure_window(desktop_.get(), entry.window, XCB_CONFIG_WINDOW_STACK_MODE, &mode);
    } else {
      const std::array<std::uint32_t, 2> values{above, XCB_STACK_MODE_BELOW};
      xcb_configure_window(desktop_.get(), entry.window,
                           XCB_CONFIG_WINDOW_SIBLING | XCB_CONFIG_WINDOW_STACK_MODE, values.data());
    }
    above = entry.window;
  });
}

void X11WindowStack::handle(const xcb_generic_event_t& event) {
  const xcb_window_t window = restackedWindow(event);
  if (window == XCB_NONE || window == desktop_.root() || isOurs(window)) return;
  raiseSoon();
}

bool X11WindowStack::isOurs(xcb_window_t window) const {
  // Every resource of this connection bears its base: windows that are already gone are known, too.
  const auto* setup = xcb_get_setup(desktop_.get());
  return (window & ~setup->resource_id_mask) == setup->resource_id_base;
}

void X11WindowStack::raiseSoon() {
  if (held_ || timer_ || entries_.empty()) return;
  const auto sinceLast =
      std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - lastRaise_);
  const auto delay = std::max(settleTime, leastRaiseInterval - sinceLast);
  timer_ = loop_.after(delay.count(), [this] {
    raise();
    desktop_.flush();
  });
}

X11PaintRounds::~X11PaintRounds() {
  if (asker_ != XCB_NONE) xcb_destroy_window(desktop_.get(), asker_);
}

void X11PaintRounds::request(xcb_window_t window, std::function<void()> paint) {
  waiting_[window] = std::move(paint);
  if (!asked_) paintRound();
}

void X11PaintRounds::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x7FU) != XCB_PROPERTY_NOTIFY) return;
  if (!asked_ || reinterpret_cast<const xcb_property_notify_event_t&>(event).window != asker_) return;
  asked_ = false;
  if (!waiting_.empty()) paintRound();
}

void X11PaintRounds::paintRound() {
  for (const auto& [window, paint] : std::exchange(waiting_, {})) paint();
  // How wide the frame around a window would be: the answer is a property of that window.
  asked_ = true;
  xcb_connection_t* connection = desktop_.get();
  if (asker_ == XCB_NONE) {
    asker_ = xcb_generate_id(connection);
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection, 0, asker_, desktop_.root(), -2, -2, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
  }
  xcb_client_message_event_t message{};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = asker_;
  message.type = desktop_.atom("_NET_REQUEST_FRAME_EXTENTS");
  xcb_send_event(connection, 0, desktop_.root(),
                 XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                 reinterpret_cast<const char*>(&message));
  xcb_flush(connection);
}

}  // namespace sentrel
