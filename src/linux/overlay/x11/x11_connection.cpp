// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_connection.h"

#include <xcb/randr.h>
#include <xcb/shape.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <array>
#include <bit>
#include <csignal>
#include <cstddef>
#include <string_view>
#include <utility>

#include "linux/overlay/x11/x11_reply.h"

namespace sentrel {

namespace {

// Writing to a server that has just died raises SIGPIPE, whose default is the end of the process.
void surviveBrokenPipes() {
  struct sigaction current {};
  if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
    std::signal(SIGPIPE, SIG_IGN);
  }
}

const xcb_screen_t* findScreen(xcb_connection_t* connection, int number) {
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
  for (; screens.rem > 0; xcb_screen_next(&screens)) {
    if (number-- == 0) return screens.data;
  }
  return nullptr;
}

// We write pixels as 32-bit words of this machine.
bool sameByteOrder(xcb_connection_t* connection) {
  const bool serverIsLittle = xcb_get_setup(connection)->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;
  return serverIsLittle == (std::endian::native == std::endian::little);
}

bool hasOurMasks(const xcb_visualtype_t& visual) {
  return visual._class == XCB_VISUAL_CLASS_TRUE_COLOR && visual.red_mask == 0xFF0000U &&
         visual.green_mask == 0xFF00U && visual.blue_mask == 0xFFU;
}

}  // namespace

std::unique_ptr<X11Connection> X11Connection::open(const std::string& display) {
  surviveBrokenPipes();
  int screenNumber = 0;
  xcb_connection_t* raw = xcb_connect(display.empty() ? nullptr : display.c_str(), &screenNumber);
  std::unique_ptr<X11Connection> connection(new X11Connection(raw, screenNumber));
  return connection->prepare() ? std::move(connection) : nullptr;
}

X11Connection::X11Connection(xcb_connection_t* connection, int screenNumber)
    : connection_(connection), screenNumber_(screenNumber) {}

X11Connection::~X11Connection() {
  xcb_disconnect(connection_);
}

void X11Connection::putImage(xcb_drawable_t drawable, std::uint8_t depth, const Rect& place,
                             const std::uint32_t* pixels) const {
  const auto& [left, top, width, height] = place;
  // Every server takes requests of this size; larger ones would only grow the buffers on both sides.
  constexpr int requestWords = 65535 - static_cast<int>(sizeof(xcb_put_image_request_t) / 4);
  const int rowsAtOnce = std::max(1, requestWords / width);
  const xcb_gcontext_t graphics = xcb_generate_id(connection_);
  xcb_create_gc(connection_, graphics, drawable, 0, nullptr);
  for (int y = 0; y < height; y += rowsAtOnce) {
    const int rows = std::min(rowsAtOnce, height - y);
    const std::uint32_t* from = pixels + static_cast<std::ptrdiff_t>(y) * width;
    xcb_put_image(connection_, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, graphics,
                  static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(rows),
                  static_cast<std::int16_t>(left), static_cast<std::int16_t>(top + y), 0, depth,
                  static_cast<std::uint32_t>(width * rows * 4), reinterpret_cast<const std::uint8_t*>(from));
  }
  xcb_free_gc(connection_, graphics);
}

bool X11Connection::prepare() {
  if (broken()) return false;
  screen_ = findScreen(connection_, screenNumber_);
  if (screen_ == nullptr || !sameByteOrder(connection_) || !queryShape()) return false;
  internAtoms();
  queryExtensions();
  findVisuals();
  return opaque_ && !broken();
}

void X11Connection::internAtoms() {
  const std::string selection = "_NET_WM_CM_S" + std::to_string(screenNumber_);
  const std::array<std::pair<std::string_view, xcb_atom_t*>, 11> names{{
      {"UTF8_STRING", &atoms_.utf8String},
      {"_NET_WM_NAME", &atoms_.netWmName},
      {"_NET_WM_WINDOW_TYPE", &atoms_.netWmWindowType},
      {"_NET_WM_WINDOW_TYPE_DOCK", &atoms_.netWmWindowTypeDock},
      {"_NET_WM_BYPASS_COMPOSITOR", &atoms_.netWmBypassCompositor},
      {"_NET_WM_WINDOW_OPACITY", &atoms_.netWmWindowOpacity},
      {"_NET_SUPPORTING_WM_CHECK", &atoms_.netSupportingWmCheck},
      {"_NET_REQUEST_FRAME_EXTENTS", &atoms_.netRequestFrameExtents},
      {"_MUTTER_VERSION", &atoms_.mutterVersion},
      {"_COMPTON_SHADOW", &atoms_.comptonShadow},
      {selection, &atoms_.compositorSelection},
  }};
  std::array<xcb_intern_atom_cookie_t, names.size()> cookies{};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string_view name = names[i].first;
    cookies[i] = xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data());
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto reply = adopt(xcb_intern_atom_reply(connection_, cookies[i], nullptr));
    if (reply) *names[i].second = reply->atom;
  }
}

void X11Connection::findVisuals() {
  auto depths = xcb_screen_allowed_depths_iterator(screen_);
  for (; depths.rem > 0; xcb_depth_next(&depths)) {
    const std::uint8_t depth = depths.data->depth;
    X11Visual* wanted = depth == 32 ? &translucent_ : depth == 24 ? &opaque_ : nullptr;
    if (wanted == nullptr || *wanted) continue;
    auto visuals = xcb_depth_visuals_iterator(depths.data);
    for (; visuals.rem > 0 && !*wanted; xcb_visualtype_next(&visuals)) {
      if (hasOurMasks(*visuals.data)) *wanted = {visuals.data->visual_id, depth, XCB_NONE};
    }
    if (!*wanted) continue;
    wanted->colormap = xcb_generate_id(connection_);
    xcb_create_colormap(connection_, XCB_COLORMAP_ALLOC_NONE, wanted->colormap, screen_->root, wanted->id);
  }
}

// Shape 1.1 brought input shapes, without which an overlay would swallow every click.
bool X11Connection::queryShape() const {
  const auto* shape = xcb_get_extension_data(connection_, &xcb_shape_id);
  if (shape == nullptr || shape->present == 0) return false;
  const auto version =
      adopt(xcb_shape_query_version_reply(connection_, xcb_shape_query_version(connection_), nullptr));
  return version && (version->major_version > 1 || version->minor_version >= 1);
}

void X11Connection::queryExtensions() {
  const auto present = [this](xcb_extension_t* id) -> const xcb_query_extension_reply_t* {
    const auto* data = xcb_get_extension_data(connection_, id);
    return data != nullptr && data->present != 0 ? data : nullptr;
  };
  if (const auto* randr = present(&xcb_randr_id)) {
    const auto version = adopt(
        xcb_randr_query_version_reply(connection_, xcb_randr_query_version(connection_, 1, 5), nullptr));
    randrEvents_ = randr->first_event;
    randrMonitors_ = version && (version->major_version > 1 || version->minor_version >= 5);
  }
  if (const auto* xfixes = present(&xcb_xfixes_id)) {
    const auto version = adopt(
        xcb_xfixes_query_version_reply(connection_, xcb_xfixes_query_version(connection_, 2, 0), nullptr));
    if (version) xfixesEvents_ = xfixes->first_event;
  }
  constexpr std::string_view xwayland = "XWAYLAND";
  const auto found = adopt(xcb_query_extension_reply(
      connection_, xcb_query_extension(connection_, xwayland.size(), xwayland.data()), nullptr));
  xwayland_ = found && found->present != 0;
}

}  // namespace sentrel
