// SPDX-License-Identifier: Apache-2.0
#include "program/screen_light.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <span>
#include <stdexcept>

namespace sentrel::bench {
namespace {

// Across the middle of the screen, over many stripes.
constexpr std::int16_t left = 200;
constexpr std::int16_t top = 540;
constexpr std::uint16_t width = 512;
constexpr std::uint16_t height = 8;

struct Release {
  void operator()(void* reply) const { std::free(reply); }  // NOLINT(cppcoreguidelines-no-malloc)
};

}  // namespace

class ScreenLight::Connection {
 public:
  Connection() : xcb_(xcb_connect(nullptr, nullptr)) {
    if (xcb_connection_has_error(xcb_) != 0) {
      xcb_disconnect(xcb_);
      throw std::runtime_error("there is no X display to look at");
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(xcb_)).data->root;
  }
  ~Connection() { xcb_disconnect(xcb_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  [[nodiscard]] double light() const {
    const std::unique_ptr<xcb_get_image_reply_t, Release> image(xcb_get_image_reply(
        xcb_, xcb_get_image(xcb_, XCB_IMAGE_FORMAT_Z_PIXMAP, root_, left, top, width, height, ~0U), nullptr));
    if (!image) throw std::runtime_error("the X display shows nothing");
    const std::span bytes(xcb_get_image_data(image.get()),
                          static_cast<std::size_t>(xcb_get_image_data_length(image.get())));
    double sum = 0;
    for (std::size_t i = 0; i + 3 < bytes.size(); i += 4) sum += bytes[i] + bytes[i + 1] + bytes[i + 2];
    return bytes.empty() ? 0 : sum / (static_cast<double>(bytes.size()) / 4 * 3);
  }

 private:
  xcb_connection_t* xcb_;
  xcb_window_t root_ = XCB_WINDOW_NONE;
};

ScreenLight::ScreenLight() : connection_(std::make_unique<Connection>()) {}
ScreenLight::~ScreenLight() = default;

double ScreenLight::now() const {
  return connection_->light();
}

}  // namespace sentrel::bench
