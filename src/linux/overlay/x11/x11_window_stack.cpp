// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_window_stack.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "linux/overlay/x11/x11_desktop.h"

namespace sentrel {

namespace {

// Long enough for a window that comes with several requests, too short to be seen.
constexpr std::chrono::milliseconds settleTime{15};
constexpr std::chrono::milliseconds leastRaiseInterval{100};

// The window that may have come above ours or has gone, or none.
xcb_window_t restackedWindow(const xcb_generic_event_t& event) {
  switch (event.response_type & 0x7FU) {
    case XCB_MAP_NOTIFY:
    case XCB_UNMAP_NOTIFY:
    case XCB_CONFIGURE_NOTIFY:
    case XCB_CIRCULATE_NOTIFY:
    case XCB_REPARENT_NOTIFY:
      return reinterpret_cast<const xcb_map_notify_event_t&>(event).window;  // as the others have it
    default:
      return XCB_NONE;
  }
}

// Of lockers that open their window before they grab the keyboard, or let go of it for a moment; as in the
// second part of WM_CLASS.
constexpr std::array<std::string_view, 4> lockerClasses{"i3lock", "xsecurelock", "XScreenSaver", "XLock"};

bool isOfLocker(const xcb_get_property_reply_t& windowClass) {
  const std::string_view parts(static_cast<const char*>(xcb_get_property_value(&windowClass)),
                               static_cast<std::size_t>(xcb_get_property_value_length(&windowClass)));
  const std::string_view second = parts.substr(std::min(parts.find('\0'), parts.size() - 1) + 1);
  return std::ranges::find(lockerClasses, second.substr(0, second.find('\0'))) != lockerClasses.end();
}

}  // namespace

void X11Lockers::begin() {
  unmanaged_.clear();
  xcb_connection_t* connection = desktop_.get();
  const auto tree =
      adopt(xcb_query_tree_reply(connection, xcb_query_tree(connection, desktop_.root()), nullptr));
  if (!tree) return;
  std::vector<std::pair<xcb_window_t, xcb_get_window_attributes_cookie_t>> asked;
  const std::span windows(xcb_query_tree_children(tree.get()),
                          static_cast<std::size_t>(xcb_query_tree_children_length(tree.get())));
  for (const xcb_window_t window : windows)
    asked.emplace_back(window, xcb_get_window_attributes(connection, window));
  for (const auto& [window, cookie] : asked) {
    const auto is = adopt(xcb_get_window_attributes_reply(connection, cookie, nullptr));
    if (is && is->override_redirect != 0 && is->map_state == XCB_MAP_STATE_VIEWABLE &&
        !desktop_.isOurs(window))
      unmanaged_.insert(window);
  }
}

void X11Lockers::handle(const xcb_generic_event_t& event) {
  const auto type = event.response_type & 0x7FU;
  if (type == XCB_MAP_NOTIFY) {
    const auto& mapped = reinterpret_cast<const xcb_map_notify_event_t&>(event);
    if (mapped.override_redirect != 0) unmanaged_.insert(mapped.window);
  } else if (type == XCB_UNMAP_NOTIFY) {
    unmanaged_.erase(reinterpret_cast<const xcb_unmap_notify_event_t&>(event).window);
  }
}

xcb_window_t X11Lockers::undermost() const {
  if (unmanaged_.empty()) return XCB_NONE;
  xcb_connection_t* connection = desktop_.get();
  struct Asked {
    xcb_window_t window;
    xcb_get_geometry_cookie_t place;
    xcb_get_property_cookie_t windowClass;
  };
  std::vector<Asked> asked;
  for (const xcb_window_t window : unmanaged_) {
    constexpr std::uint32_t mostWords = 64;
    asked.push_back(
        {window, xcb_get_geometry(connection, window),
         xcb_get_property(connection, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, mostWords)});
  }
  std::set<xcb_window_t> found;
  std::set<xcb_window_t> unnamed;  // full-screen windows of somebody
  for (const Asked& one : asked) {
    const auto place = adopt(xcb_get_geometry_reply(connection, one.place, nullptr));
    const auto windowClass = adopt(xcb_get_property_reply(connection, one.windowClass, nullptr));
    if (!place || !windowClass || !fillsMonitor(*place)) continue;
    (isOfLocker(*windowClass) ? found : unnamed).insert(one.window);
  }
  if (!unnamed.empty() && keyboardIsGrabbed()) found.merge(unnamed);
  if (found.size() < 2) return found.empty() ? xcb_window_t{XCB_NONE} : *found.begin();
  const auto tree =
      adopt(xcb_query_tree_reply(connection, xcb_query_tree(connection, desktop_.root()), nullptr));
  if (!tree) return *found.begin();
  const std::span upwards(xcb_query_tree_children(tree.get()),
                          static_cast<std::size_t>(xcb_query_tree_children_length(tree.get())));
  const auto first =
      std::ranges::find_if(upwards, [&](xcb_window_t window) { return found.contains(window); });
  return first == upwards.end() ? xcb_window_t{XCB_NONE} : *first;
}

bool X11Lockers::fillsMonitor(const xcb_get_geometry_reply_t& place) const {
  return std::ranges::any_of(desktop_.monitors(), [&](const X11Monitor& monitor) {
    const Rect& pixels = monitor.pixels;
    return place.x <= pixels.x && place.y <= pixels.y && place.x + place.width >= pixels.x + pixels.width &&
           place.y + place.height >= pixels.y + pixels.height;
  });
}

/// Nobody tells whether somebody has grabbed it. But who asks for a grab by a window that is not shown gets
/// none, and hears first of all when another has it.
bool X11Lockers::keyboardIsGrabbed() const {
  xcb_connection_t* connection = desktop_.get();
  const xcb_window_t hidden = xcb_generate_id(connection);
  xcb_create_window(connection, 0, hidden, desktop_.root(), -2, -2, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                    XCB_COPY_FROM_PARENT, 0, nullptr);
  const auto cookie =
      xcb_grab_keyboard(connection, 0, hidden, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
  xcb_destroy_window(connection, hidden);
  const auto reply = adopt(xcb_grab_keyboard_reply(connection, cookie, nullptr));
  return reply && reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED;
}

void X11WindowStack::add(xcb_window_t window, X11Layer layer) {
  const auto above =
      std::ranges::find_if(entries_, [layer](const Entry& entry) { return entry.layer > layer; });
  entries_.insert(above, {window, layer});
  if (entries_.size() > 1) return;
  desktop_.setWatchful(true);
  lockers_.begin();
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
  xcb_window_t above = lockers_.undermost();
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
  if (window == XCB_NONE || window == desktop_.root() || desktop_.isOurs(window)) return;
  lockers_.handle(event);
  // When a locker goes there is nothing to raise: nobody has come between it and our windows.
  if ((event.response_type & 0x7FU) != XCB_UNMAP_NOTIFY) raiseSoon();
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
