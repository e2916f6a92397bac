// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_scene_window.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sentrel {

namespace {

// Scenes change in bursts, then rest for minutes, in which 8 MiB at 1080p are better given back.
constexpr std::int64_t bufferIdleMs = 2000;

// The part of a scene that this window shows.
OverlayScene covering(const OverlayScene& scene) {
  OverlayScene result;
  result.stripes = scene.stripes;
  result.veilAlpha = scene.veilAlpha;
  return result;
}

}  // namespace

X11SceneWindow::X11SceneWindow(X11Connection& connection, X11WindowStack& stack, MainLoop& loop)
    : connection_(connection),
      loop_(loop),
      window_(connection, stack, OverlayLayer::scene, X11OverlayWindow::Look::translucent, "sentrel scene"),
      graphics_(xcb_generate_id(connection.get())) {
  xcb_create_gc(connection_.get(), graphics_, window_.id(), 0, nullptr);
  window_.selectExposures();
}

X11SceneWindow::~X11SceneWindow() {
  xcb_free_gc(connection_.get(), graphics_);
}

void X11SceneWindow::present(const OverlayScene& scene, const Rect& pixels, double scale) {
  if (!ScenePainter::covers(scene)) {
    hide();
    return;
  }
  const bool resized = pixels.width != window_.pixels().width || pixels.height != window_.pixels().height;
  const bool changed = covering(scene) != scene_ || scale != scale_;
  scene_ = covering(scene);
  scale_ = scale;
  // A new size discards the content, and so does unmapping; the server then asks for all of it.
  if (resized || !window_.isMapped()) drawable_ = false;
  window_.place(pixels);
  window_.setMapped(true);
  if (changed) paint();
}

void X11SceneWindow::hide() {
  window_.setMapped(false);
  drawable_ = false;
}

void X11SceneWindow::handle(const xcb_generic_event_t& event) {
  const unsigned type = event.response_type & 0x7FU;
  if (type == XCB_EXPOSE) {
    handleExposure(reinterpret_cast<const xcb_expose_event_t&>(event));
  } else if (connection_.canShareMemory() && type == connection_.shmEvents() + XCB_SHM_COMPLETION) {
    if (reinterpret_cast<const xcb_shm_completion_event_t&>(event).drawable == window_.id()) finishTransfer();
  } else if (type == 0 && transferring_) {
    const auto& error = reinterpret_cast<const xcb_generic_error_t&>(event);
    // No completion will follow. The next time pixels go through the socket.
    if (error.major_code != connection_.shmOpcode()) return;
    connection_.giveUpSharedMemory();
    outdated_ = true;
    finishTransfer();
  }
}

void X11SceneWindow::handleExposure(const xcb_expose_event_t& event) {
  // Of a series of exposed rectangles the last one counts: the whole window is drawn at once.
  if (event.window != window_.id() || event.count != 0 || !window_.isMapped()) return;
  drawable_ = true;
  paint();
}

void X11SceneWindow::finishTransfer() {
  transferring_ = false;
  if (outdated_) {
    paint();
    return;
  }
  release_ = loop_.after(bufferIdleMs, [this] { buffer_.reset(); });
}

void X11SceneWindow::paint() {
  if (!drawable_) return;
  outdated_ = transferring_;
  if (transferring_) return;
  const ScenePainter painter(scene_, window_.pixels().width, window_.pixels().height, scale_);
  if (!paintShared(painter)) paintPieces(painter);
}

bool X11SceneWindow::paintShared(const ScenePainter& painter) {
  if (!connection_.canShareMemory()) return false;
  const auto [x, y, width, height] = window_.pixels();
  const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  release_.reset();
  if (!buffer_ || buffer_->pixels().size() != count) {
    buffer_.reset();
    buffer_ = X11SharedBuffer::create(connection_, count);
  }
  if (!buffer_) {
    connection_.giveUpSharedMemory();
    return false;
  }
  painter.paint(0, height, buffer_->pixels());
  const auto w = static_cast<std::uint16_t>(width);
  const auto h = static_cast<std::uint16_t>(height);
  xcb_shm_put_image(connection_.get(), window_.id(), graphics_, w, h, 0, 0, w, h, 0, 0,
                    window_.visual().depth, XCB_IMAGE_FORMAT_Z_PIXMAP, 1, buffer_->segment(), 0);
  transferring_ = true;
  return true;
}

void X11SceneWindow::paintPieces(const ScenePainter& painter) const {
  const auto [x, y, width, height] = window_.pixels();
  const std::size_t rowBytes = static_cast<std::size_t>(width) * sizeof(std::uint32_t);
  const int rows = connection_.rowsPerRequest(rowBytes);
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(rows));
  for (int first = 0; first < height; first += rows) {
    const int count = std::min(rows, height - first);
    painter.paint(first, count, pixels);
    xcb_put_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, window_.id(), graphics_,
                  static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(count), 0,
                  static_cast<std::int16_t>(first), 0, window_.visual().depth,
                  static_cast<std::uint32_t>(rowBytes * static_cast<std::size_t>(count)),
                  reinterpret_cast<const std::uint8_t*>(pixels.data()));
  }
}

}  // namespace sentrel
