// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_overlay_window.h"

#include <xcb/shape.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace sentrel {

namespace {
// By so many columns and rows less one a window may be larger than its place. Pictures that come faster than
// the compositor takes them are left out: with only two sizes the next that it takes could have the size of
// the one before again.
constexpr unsigned sizeSteps = 16;
}  // namespace

X11OverlayWindow::X11OverlayWindow(X11Desktop& desktop, X11Layer layer, Look look, std::string_view name)
    : desktop_(desktop),
      takesNewSizes_(desktop.clickThrough() == ClickThrough::newSizes),
      visual_(look == Look::translucent ? desktop.translucentVisual() : desktop.opaqueVisual()),
      id_(xcb_generate_id(connection())),
      pixels_{0, 0, 1, 1} {
  const std::uint32_t mask = XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT |
                             XCB_CW_EVENT_MASK | XCB_CW_COLORMAP;
  const std::array<std::uint32_t, 5> values{0, 0, 1, 0, visual_.colormap};
  xcb_create_window(connection(), visual_.depth, id_, desktop_.root(), 0, 0, 1, 1, 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, visual_.id, mask, values.data());
  // No rectangle takes input: every click and scroll reaches what lies beneath.
  xcb_shape_rectangles(connection(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED, id_, 0,
                       0, 0, nullptr);
  describe(name);
  desktop_.stack().add(id_, layer);
}

X11OverlayWindow::~X11OverlayWindow() {
  desktop_.paintRounds().forget(id_);
  desktop_.stack().remove(id_);
  xcb_destroy_window(connection(), id_);
}

// No window manager reads this, but compositing managers do.
void X11OverlayWindow::describe(std::string_view name) const {
  const auto atom = [this](std::string_view known) { return desktop_.atom(known); };
  const auto setText = [this](xcb_atom_t property, xcb_atom_t type, std::string_view text) {
    xcb_change_property(connection(), XCB_PROP_MODE_REPLACE, id_, property, type, 8,
                        static_cast<std::uint32_t>(text.size()), text.data());
  };
  const auto setNumber = [this](xcb_atom_t property, xcb_atom_t type, std::uint32_t value) {
    xcb_change_property(connection(), XCB_PROP_MODE_REPLACE, id_, property, type, 32, 1, &value);
  };
  using namespace std::string_view_literals;
  setText(XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, "sentrel\0sentrel\0"sv);
  setText(XCB_ATOM_WM_NAME, XCB_ATOM_STRING, name);
  setText(atom("_NET_WM_NAME"), atom("UTF8_STRING"), name);
  // Of all types the dock is the one that compositing managers leave without shadow, blur, dimming and
  // animation.
  setNumber(atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, atom("_NET_WM_WINDOW_TYPE_DOCK"));
  setNumber(atom("_COMPTON_SHADOW"), XCB_ATOM_CARDINAL, 0);
  // 2: keep composing while this window is there. A full-screen window below ours must not take the screen.
  setNumber(atom("_NET_WM_BYPASS_COMPOSITOR"), XCB_ATOM_CARDINAL, 2);
}

void X11OverlayWindow::place(const Rect& pixels) {
  if (pixels == pixels_) return;
  pixels_ = pixels;
  mapped_&& takesNewSizes_ ? takeNewSize() : configure();
}

/// With one request, which the server never cuts into two pictures: it fills a window that changes its size
/// with its background, all of it.
void X11OverlayWindow::takeNewSize() {
  desktop_.paintRounds().request(id_, [this] {
    if (!mapped_) return;
    ++size_;
    configure();
  });
}

void X11OverlayWindow::configure() const {
  const std::array<std::uint32_t, 4> values{
      static_cast<std::uint32_t>(pixels_.x), static_cast<std::uint32_t>(pixels_.y),
      static_cast<std::uint32_t>(std::max(pixels_.width, 1)) + size_ % sizeSteps,
      static_cast<std::uint32_t>(std::max(pixels_.height, 1)) + size_ / sizeSteps % sizeSteps};
  xcb_configure_window(
      connection(), id_,
      XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
      values.data());
}

void X11OverlayWindow::setMapped(bool mapped) {
  if (mapped == mapped_) return;
  mapped_ = mapped;
  if (mapped) {
    size_ = 0;
    if (takesNewSizes_) configure();
    desktop_.stack().map(id_);
  } else {
    xcb_unmap_window(connection(), id_);
  }
}

void X11OverlayWindow::setBackground(std::uint32_t argb) {
  xcb_change_window_attributes(connection(), id_, XCB_CW_BACK_PIXEL, &argb);
  repaint({0, 0, pixels_.width, pixels_.height});
}

xcb_pixmap_t X11OverlayWindow::createBackground(int width, int height) const {
  const auto spare = static_cast<int>(takesNewSizes_ ? sizeSteps - 1 : 0);
  const xcb_rectangle_t whole{0, 0, static_cast<std::uint16_t>(width + spare),
                              static_cast<std::uint16_t>(height + spare)};
  const xcb_pixmap_t picture = xcb_generate_id(connection());
  xcb_create_pixmap(connection(), visual_.depth, picture, id_, whole.width, whole.height);
  if (spare == 0) return picture;
  const xcb_gcontext_t transparent = xcb_generate_id(connection());
  const std::uint32_t pixel = 0;
  xcb_create_gc(connection(), transparent, picture, XCB_GC_FOREGROUND, &pixel);
  xcb_poly_fill_rectangle(connection(), picture, transparent, 1, &whole);
  xcb_free_gc(connection(), transparent);
  return picture;
}

void X11OverlayWindow::putImage(xcb_pixmap_t picture, const Rect& place, const std::uint32_t* pixels) const {
  const auto& [left, top, width, height] = place;
  // Every server takes requests of this size; larger ones would only grow the buffers on both sides.
  constexpr int requestWords = 65535 - static_cast<int>(sizeof(xcb_put_image_request_t) / 4);
  const int rowsAtOnce = std::max(1, requestWords / width);
  const xcb_gcontext_t graphics = xcb_generate_id(connection());
  xcb_create_gc(connection(), graphics, picture, 0, nullptr);
  for (int y = 0; y < height; y += rowsAtOnce) {
    const int rows = std::min(rowsAtOnce, height - y);
    const std::uint32_t* from = pixels + static_cast<std::ptrdiff_t>(y) * width;
    xcb_put_image(connection(), XCB_IMAGE_FORMAT_Z_PIXMAP, picture, graphics,
                  static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(rows),
                  static_cast<std::int16_t>(left), static_cast<std::int16_t>(top + y), 0, visual_.depth,
                  static_cast<std::uint32_t>(width * rows * 4), reinterpret_cast<const std::uint8_t*>(from));
  }
  xcb_free_gc(connection(), graphics);
}

void X11OverlayWindow::setBackgroundPicture(xcb_pixmap_t picture) {
  xcb_change_window_attributes(connection(), id_, XCB_CW_BACK_PIXMAP, &picture);
}

void X11OverlayWindow::repaint(const Rect& area) {
  if (!mapped_) return;
  if (takesNewSizes_) {
    takeNewSize();
    return;
  }
  xcb_clear_area(connection(), 0, id_, static_cast<std::int16_t>(area.x), static_cast<std::int16_t>(area.y),
                 static_cast<std::uint16_t>(area.width), static_cast<std::uint16_t>(area.height));
}

void X11OverlayWindow::setShape(const QRegion& region) const {
  std::vector<xcb_rectangle_t> rectangles;
  for (const QRect& r : region) {
    rectangles.push_back({static_cast<std::int16_t>(r.x()), static_cast<std::int16_t>(r.y()),
                          static_cast<std::uint16_t>(r.width()), static_cast<std::uint16_t>(r.height())});
  }
  xcb_shape_rectangles(connection(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_YX_BANDED,
                       id_, 0, 0, static_cast<std::uint32_t>(rectangles.size()), rectangles.data());
}

void X11OverlayWindow::setOpacity(double opacity) const {
  const auto value = static_cast<std::uint32_t>(opacity * 0xFFFFFFFFU);
  xcb_change_property(connection(), XCB_PROP_MODE_REPLACE, id_, desktop_.atom("_NET_WM_WINDOW_OPACITY"),
                      XCB_ATOM_CARDINAL, 32, 1, &value);
}

void X11OverlayWindow::takeClicks(const Rect& area) const {
  const xcb_rectangle_t taken{static_cast<std::int16_t>(area.x), static_cast<std::int16_t>(area.y),
                              static_cast<std::uint16_t>(area.width),
                              static_cast<std::uint16_t>(area.height)};
  xcb_shape_rectangles(connection(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED, id_, 0,
                       0, 1, &taken);
  const std::uint32_t events = XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE;
  xcb_change_window_attributes(connection(), id_, XCB_CW_EVENT_MASK, &events);
}

void X11OverlayWindow::selectExposures() {
  const std::uint32_t events = XCB_EVENT_MASK_EXPOSURE;
  xcb_change_window_attributes(connection(), id_, XCB_CW_EVENT_MASK, &events);
}

}  // namespace sentrel
