// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_desktop.h"

#include <xcb/randr.h>

#include <cstdint>
#include <utility>

#include "platform/desktop_services.h"

namespace sentrel {

namespace {
// The root's own geometry changes with every new arrangement, also where RandR tells nothing.
constexpr std::uint32_t quietEvents = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
constexpr std::uint32_t watchfulEvents =
    quietEvents | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
// A window manager makes itself known by a property.
constexpr std::uint32_t eventsWithoutWindowManager = quietEvents | XCB_EVENT_MASK_PROPERTY_CHANGE;
}  // namespace

std::unique_ptr<X11Desktop> X11Desktop::open(const std::string& display, MainLoop& loop, Handlers handlers) {
  auto connection = X11Connection::open(display);
  if (!connection) return nullptr;
  return std::unique_ptr<X11Desktop>(new X11Desktop(std::move(connection), loop, std::move(handlers)));
}

X11Desktop::X11Desktop(std::unique_ptr<X11Connection> connection, MainLoop& loop, Handlers handlers)
    : connection_(std::move(connection)),
      loop_(loop),
      handlers_(std::move(handlers)),
      stack_(*connection_, loop, [this](bool inUse) { setWatchful(inUse); }),
      paintPace_(*connection_),
      compositor_(*connection_, loop, [this] { handlers_.changed(); }),
      pump_(
          connection_->get(), [this](const xcb_generic_event_t& event) { handle(event); },
          [this] { loss_ = loop_.after(0, [lost = handlers_.lost] { lost(); }); }) {
  if (connection_->randrEvents() != 0) {
    xcb_randr_select_input(connection_->get(), connection_->root(),
                           XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                               XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
  }
  selectRootEvents();  // first, so that nothing is missed after the reading
  readMonitors();
}

std::vector<Screen> X11Desktop::screens() const {
  std::vector<Screen> result;
  for (const X11Monitor& monitor : monitors_) result.push_back(monitor.screen);
  return result;
}

std::string X11Desktop::limitation() const {
  if (clickThrough_ == ClickThrough::nothing) return textId("error_no_overlay");
  return blendsWindows() ? "" : textId("error_no_compositing");
}

void X11Desktop::setWatchful(bool watchful) {
  watchful_ = watchful;
  selectRootEvents();
  if (watchful) reloadSoon();  // the scale may have changed unseen
}

void X11Desktop::selectRootEvents() {
  const std::uint32_t events = watchful_                                ? watchfulEvents
                               : clickThrough_ == ClickThrough::nothing ? eventsWithoutWindowManager
                                                                        : quietEvents;
  xcb_change_window_attributes(connection_->get(), connection_->root(), XCB_CW_EVENT_MASK, &events);
}

void X11Desktop::handle(const xcb_generic_event_t& event) {
  stack_.handle(event);
  compositor_.handle(event);
  paintPace_.handle(event);
  if (concernsMonitors(event)) reloadSoon();
  if ((event.response_type & 0x7FU) != XCB_EXPOSE) return;
  const auto& expose = reinterpret_cast<const xcb_expose_event_t&>(event);
  // Of a series of exposed rectangles the last one counts.
  if (expose.count == 0) exposed_.emit(expose.window);
}

bool X11Desktop::concernsMonitors(const xcb_generic_event_t& event) const {
  const unsigned type = event.response_type & 0x7FU;
  if (type == XCB_CONFIGURE_NOTIFY) {
    return reinterpret_cast<const xcb_configure_notify_event_t&>(event).window == connection_->root();
  }
  if (type == XCB_PROPERTY_NOTIFY) {
    const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(event);
    return notify.window == connection_->root() && (notify.atom == XCB_ATOM_RESOURCE_MANAGER ||
                                                    notify.atom == connection_->atoms().netSupportingWmCheck);
  }
  const unsigned first = connection_->randrEvents();
  return first != 0 && (type == first + XCB_RANDR_SCREEN_CHANGE_NOTIFY || type == first + XCB_RANDR_NOTIFY);
}

/// A new arrangement comes with several events; one reading after the last of them is enough.
void X11Desktop::reloadSoon() {
  reload_ = loop_.after(0, [this] {
    if (readMonitors()) handlers_.changed();
  });
}

bool X11Desktop::readMonitors() {
  auto monitors = sentrel::readMonitors(*connection_);
  const ClickThrough clickThrough = findClickThrough(*connection_, monitors);
  // A screen that takes every click is worse than one that is not covered.
  if (clickThrough == ClickThrough::nothing) monitors.clear();
  if (connection_->broken() || (monitors == monitors_ && clickThrough == clickThrough_)) return false;
  monitors_ = std::move(monitors);
  clickThrough_ = clickThrough;
  selectRootEvents();
  return true;
}

}  // namespace sentrel
