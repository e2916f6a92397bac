// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/foreign_window.h"

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace sentrel::test {

namespace {
xcb_atom_t atom(xcb_connection_t* connection, std::string_view name) {
  auto* reply = xcb_intern_atom_reply(
      connection, xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()),
      nullptr);
  const xcb_atom_t result = reply != nullptr ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
  std::free(reply);
  return result;
}
}  // namespace

ForeignWindow::ForeignWindow(const Options& options)
    : connection_(xcb_connect(options.display.c_str(), nullptr)) {
  if (xcb_connection_has_error(connection_) != 0) throw std::runtime_error("no display " + options.display);
  const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
  root_ = screen->root;
  depth_ = screen->root_depth;
  window_ = xcb_generate_id(connection_);
  const std::array<std::uint32_t, 3> values{options.rgb, options.managed ? 0U : 1U,
                                            XCB_EVENT_MASK_BUTTON_PRESS};
  const auto [x, y, width, height] = options.pixels;
  xcb_create_window(connection_, depth_, window_, root_, static_cast<std::int16_t>(x),
                    static_cast<std::int16_t>(y), static_cast<std::uint16_t>(width),
                    static_cast<std::uint16_t>(height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                    XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values.data());
  if (options.fullScreen) {
    const xcb_atom_t state = atom(connection_, "_NET_WM_STATE_FULLSCREEN");
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, atom(connection_, "_NET_WM_STATE"),
                        XCB_ATOM_ATOM, 32, 1, &state);
  }
  xcb_map_window(connection_, window_);
  sync();
}

ForeignWindow::~ForeignWindow() {
  xcb_disconnect(connection_);
}

void ForeignWindow::setPicture(const QImage& picture) {
  const QImage rgb = picture.convertToFormat(QImage::Format_RGB32);
  const xcb_pixmap_t pixmap = xcb_generate_id(connection_);
  const auto width = static_cast<std::uint16_t>(rgb.width());
  xcb_create_pixmap(connection_, depth_, pixmap, window_, width, static_cast<std::uint16_t>(rgb.height()));
  const xcb_gcontext_t graphics = xcb_generate_id(connection_);
  xcb_create_gc(connection_, graphics, pixmap, 0, nullptr);
  for (int y = 0; y < rgb.height(); ++y) {
    xcb_put_image(connection_, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, graphics, width, 1, 0,
                  static_cast<std::int16_t>(y), 0, depth_, static_cast<std::uint32_t>(rgb.bytesPerLine()),
                  rgb.constScanLine(y));
  }
  xcb_change_window_attributes(connection_, window_, XCB_CW_BACK_PIXMAP, &pixmap);
  xcb_clear_area(connection_, 0, window_, 0, 0, 0, 0);
  sync();
}

void ForeignWindow::raise() {
  const std::uint32_t mode = XCB_STACK_MODE_ABOVE;
  xcb_configure_window(connection_, window_, XCB_CONFIG_WINDOW_STACK_MODE, &mode);
  sync();
}

bool ForeignWindow::wasClicked() {
  sync();
  return std::exchange(clicked_, false);
}

int ForeignWindow::restacksSeen() {
  sync();
  return std::exchange(restacks_, 0);
}

void ForeignWindow::watchRestacks() {
  const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
  xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &events);
  sync();
}

void ForeignWindow::sync() {
  auto* reply = xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr);
  const bool answered = reply != nullptr;
  std::free(reply);
  if (!answered) throw std::runtime_error("the X server does not answer");
  readEvents();
}

void ForeignWindow::readEvents() {
  while (auto* event = xcb_poll_for_event(connection_)) {
    const unsigned type = event->response_type & 0x7FU;
    if (type == XCB_BUTTON_PRESS) clicked_ = true;
    if (type == XCB_CONFIGURE_NOTIFY &&
        reinterpret_cast<const xcb_configure_notify_event_t*>(event)->window != window_) {
      ++restacks_;
    }
    std::free(event);
  }
}

}  // namespace sentrel::test
