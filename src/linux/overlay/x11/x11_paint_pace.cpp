// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_paint_pace.h"

#include <cstdint>
#include <utility>

namespace sentrel {

X11PaintPace::~X11PaintPace() {
  if (asker_ != XCB_NONE) xcb_destroy_window(connection_.get(), asker_);
}

void X11PaintPace::request(xcb_window_t window, std::function<void()> paint) {
  waiting_[window] = std::move(paint);
  if (!asked_) paintRound();
}

void X11PaintPace::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x7FU) != XCB_PROPERTY_NOTIFY) return;
  if (!asked_ || reinterpret_cast<const xcb_property_notify_event_t&>(event).window != asker_) return;
  asked_ = false;
  if (!waiting_.empty()) paintRound();
}

void X11PaintPace::paintRound() {
  for (const auto& [window, paint] : std::exchange(waiting_, {})) paint();
  ask();
}

/// How wide the frame around a window would be: the answer is a property of that window.
void X11PaintPace::ask() {
  asked_ = true;
  xcb_connection_t* connection = connection_.get();
  if (asker_ == XCB_NONE) {
    asker_ = xcb_generate_id(connection);
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection, 0, asker_, connection_.root(), -2, -2, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
  }
  xcb_client_message_event_t message{};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = asker_;
  message.type = connection_.atoms().netRequestFrameExtents;
  xcb_send_event(connection, 0, connection_.root(),
                 XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                 reinterpret_cast<const char*>(&message));
  xcb_flush(connection);
}

}  // namespace sentrel
