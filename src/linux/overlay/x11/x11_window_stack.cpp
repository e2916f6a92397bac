// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_window_stack.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace sentrel {

namespace {

// Long enough for a window that comes with several requests, too short to be seen.
constexpr std::chrono::milliseconds settleTime{15};
constexpr std::chrono::milliseconds leastRaiseInterval{100};

// The window that may have come above ours, or none.
xcb_window_t restackedWindow(const xcb_generic_event_t& event) {
  switch (event.response_type & 0x7FU) {
    case XCB_MAP_NOTIFY:
      return reinterpret_cast<const xcb_map_notify_event_t&>(event).window;
    case XCB_CONFIGURE_NOTIFY:
      return reinterpret_cast<const xcb_configure_notify_event_t&>(event).window;
    case XCB_CIRCULATE_NOTIFY:
      return reinterpret_cast<const xcb_circulate_notify_event_t&>(event).window;
    case XCB_REPARENT_NOTIFY:
      return reinterpret_cast<const xcb_reparent_notify_event_t&>(event).window;
    default:
      return XCB_NONE;
  }
}

}  // namespace

X11WindowStack::X11WindowStack(const X11Connection& connection, MainLoop& loop,
                               std::function<void(bool)> onUse)
    : connection_(connection), loop_(loop), onUse_(std::move(onUse)) {}

void X11WindowStack::add(xcb_window_t window, OverlayLayer layer) {
  const auto above =
      std::ranges::find_if(entries_, [layer](const Entry& entry) { return entry.layer > layer; });
  entries_.insert(above, {window, layer});
  if (entries_.size() == 1) onUse_(true);
}

void X11WindowStack::remove(xcb_window_t window) {
  std::erase_if(entries_, [window](const Entry& entry) { return entry.window == window; });
  if (!entries_.empty()) return;
  timer_.reset();
  onUse_(false);
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
      xcb_configure_window(connection_.get(), entry.window, XCB_CONFIG_WINDOW_STACK_MODE, &mode);
    } else {
      const std::array<std::uint32_t, 2> values{above, XCB_STACK_MODE_BELOW};
      xcb_configure_window(connection_.get(), entry.window,
                           XCB_CONFIG_WINDOW_SIBLING | XCB_CONFIG_WINDOW_STACK_MODE, values.data());
    }
    above = entry.window;
  });
}

void X11WindowStack::handle(const xcb_generic_event_t& event) {
  const xcb_window_t window = restackedWindow(event);
  if (window == XCB_NONE || window == connection_.root() || isOurs(window)) return;
  raiseSoon();
}

bool X11WindowStack::isOurs(xcb_window_t window) const {
  // Every resource of this connection bears its base: windows that are already gone are known, too.
  const auto* setup = xcb_get_setup(connection_.get());
  return (window & ~setup->resource_id_mask) == setup->resource_id_base;
}

void X11WindowStack::raiseSoon() {
  if (timer_ || entries_.empty()) return;
  const auto sinceLast =
      std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - lastRaise_);
  const auto delay = std::max(settleTime, leastRaiseInterval - sinceLast);
  timer_ = loop_.after(delay.count(), [this] {
    raise();
    xcb_flush(connection_.get());
  });
}

}  // namespace sentrel
