// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_layer_windows.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "linux/overlay/painter/notice_painter.h"
#include "linux/overlay/painter/scene_painter.h"

namespace sentrel {

namespace {

constexpr std::uint32_t everyEdge = ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM |
                                    ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT | ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT;
constexpr std::int32_t belowAndAbovePanels = -1;
// As many pixels as five 4K screens have: what asks for more does not mean it.
constexpr double mostPixels = 42e6;
// From here on, above WQHD, making a picture anew takes longer than a frame of the screen; below, 8 MiB and
// more are not worth the time.
constexpr std::size_t leastKeptPixels = 4'000'000;
constexpr std::uint32_t greatestSide = 32767;
constexpr double fractionalScaleUnit = 120;
constexpr std::int64_t memoryRetryMs = 500;

int device(int logical, double scale) {
  return std::max(1, static_cast<int>(std::lround(logical * scale)));
}

/// Makes the surface part of the overlay layer and asks for its size. Its parts may be made only after that
/// request: sway does not see changes of those that are older.
zwlr_layer_surface_v1* enterLayer(const WaylandConnection& connection, const WaylandOutput& output,
                                  WaylandSurface& surface) {
  auto* layer = zwlr_layer_shell_v1_get_layer_surface(connection.layerShell(), surface.get(), output.get(),
                                                      ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY, "sentrel");
  zwlr_layer_surface_v1_set_size(layer, 0, 0);
  zwlr_layer_surface_v1_set_anchor(layer, everyEdge);
  zwlr_layer_surface_v1_set_exclusive_zone(layer, belowAndAbovePanels);
  zwlr_layer_surface_v1_set_keyboard_interactivity(layer, 0);
  surface.commit();
  return layer;
}

}  // namespace

WaylandLayerWindows::WaylandLayerWindows(WaylandDesktop& desktop, std::shared_ptr<const WaylandOutput> output,
                                         std::function<void()> onClosed)
    : desktop_(desktop),
      output_(std::move(output)),
      onClosed_(std::move(onClosed)),
      base_(desktop.connection()),
      scenePictures_(leastKeptPixels),
      layer_(enterLayer(desktop.connection(), *output_, base_)),
      tint_(desktop.connection(), base_.get()),
      hint_(desktop.connection(), base_.get()),
      banner_(desktop.connection(), base_.get()) {
  listen();
}

WaylandLayerWindows::~WaylandLayerWindows() = default;

void WaylandLayerWindows::listen() {
  static constexpr zwlr_layer_surface_v1_listener layerListener{
      .configure =
          [](void* self, zwlr_layer_surface_v1*, std::uint32_t serial, std::uint32_t width,
             std::uint32_t height) {
            static_cast<WaylandLayerWindows*>(self)->configured(serial, width, height);
          },
      .closed =
          [](void* self, zwlr_layer_surface_v1*) {
            const auto closed = static_cast<WaylandLayerWindows*>(self)->onClosed_;
            closed();
          },
  };
  zwlr_layer_surface_v1_add_listener(layer_.get(), &layerListener, this);
  if (desktop_.connection().fractionalScales() == nullptr) return;
  static constexpr wp_fractional_scale_v1_listener scaleListener{
      .preferred_scale =
          [](void* self, wp_fractional_scale_v1*, std::uint32_t scale) {
            auto& windows = *static_cast<WaylandLayerWindows*>(self);
            windows.preferredScale_ = scale / fractionalScaleUnit;
            windows.refresh();
          },
  };
  fractionalScale_.reset(wp_fractional_scale_manager_v1_get_fractional_scale(
      desktop_.connection().fractionalScales(), base_.get()));
  wp_fractional_scale_v1_add_listener(fractionalScale_.get(), &scaleListener, this);
}

void WaylandLayerWindows::configured(std::uint32_t serial, std::uint32_t width, std::uint32_t height) {
  zwlr_layer_surface_v1_ack_configure(layer_.get(), serial);
  // An output without a size shows nothing; the next configuration may be sane.
  if (width == 0 || height == 0) return;
  width_ = static_cast<int>(std::min(width, greatestSide));
  height_ = static_cast<int>(std::min(height, greatestSide));
  paint();
}

void WaylandLayerWindows::show(const OverlayScene& scene, TintLevel tint) {
  scene_ = scene;
  tintLevel_ = tint;
  paint();
}

void WaylandLayerWindows::setTint(TintLevel level) {
  tintLevel_ = level;
  if (!isShown()) return;
  applyTint();
  desktop_.flush();
}

void WaylandLayerWindows::refresh() {
  paint();
}

void WaylandLayerWindows::bearPicture(const WaylandRetroContent* content) {
  if (content == retroContent_) return;
  retroContent_ = content;
  retro_.reset();
  if (!isShown()) return;
  paintRetro();
  base_.commit();
  desktop_.flush();
}

void WaylandLayerWindows::paintRetro() {
  if (retroContent_ == nullptr) return;
  if (!retro_) retro_ = std::make_unique<WaylandRetroPart>(desktop_, base_.get(), *retroContent_);
  retro_->place({0, 0, width_, height_}, scale());
}

double WaylandLayerWindows::scale() const {
  const double wanted = preferredScale_ > 0 ? preferredScale_ : deviceScale(output_->state());
  const double pixels = static_cast<double>(width_) * height_ * wanted * wanted;
  return pixels > mostPixels ? wanted * std::sqrt(mostPixels / pixels) : wanted;
}

void WaylandLayerWindows::paint() {
  if (!isShown()) return;
  const Content content{*scene_, width_, height_, scale()};
  if (content == painted_) return;
  if (content.width != painted_.width || content.height != painted_.height ||
      content.scale != painted_.scale) {
    paintRetro();
  }
  paintNotices(content);
  applyTint();
  const bool complete = paintScene(content);
  // Last, because the parts' places come with it.
  base_.commit();
  desktop_.flush();
  if (complete) {
    painted_ = content;
    memoryRetry_.reset();
  } else {
    memoryRetry_ = desktop_.loop().after(memoryRetryMs, [this] { paint(); });
  }
}

/// False when there was no memory for it: what was shown before stays.
bool WaylandLayerWindows::paintScene(const Content& content) {
  const auto& [scene, width, height, scale] = content;
  if (!scene.stripes || !ScenePainter::covers(scene)) {
    std::uint32_t pixel = 0;
    ScenePainter(scene, 1, 1, scale).paint(1, 1, {&pixel, 1});
    base_.show(desktop_.palette().color(pixel), width, height);
    return true;
  }
  const int columns = device(width, scale);
  const int rows = device(height, scale);
  const ScenePainter painter(scene, columns, rows, scale);
  std::vector<WaylandMemory::Row> picture;
  picture.reserve(static_cast<std::size_t>(rows));
  for (int y = 0; y < rows; ++y) picture.push_back(painter.row(y, columns));
  WaylandPicture* next = scenePictures_.idle(columns, rows);
  if (next != nullptr) {
    if (!next->memory.overwrite(picture)) return false;
  } else {
    auto memory = WaylandMemory::copyOf(desktop_.connection().sharedMemory(), picture);
    if (!memory) return false;
    next = &scenePictures_.add(std::move(*memory), columns, rows);
  }
  base_.show(next->buffer.get(), width, height);
  next->shown = true;
  return true;
}

/// The banner ahead of its use: when an alert comes, it has only to be shown.
void WaylandLayerWindows::paintNotices(const Content& content) {
  const auto& [scene, width, height, scale] = content;
  const bool moved = width != painted_.width || height != painted_.height || scale != painted_.scale;
  const Rect screen{0, 0, device(width, scale), device(height, scale)};
  if (moved || !bannerPicture_.buffer) {
    bannerShown_ = false;
    if (!allocate(banner_, bannerPicture_, paintBanner(screen, scale, BannerStyle::translucent), scale)) {
      bannerPicture_.buffer.reset();
    }
  }
  if (moved || !hintPicture_.buffer || scene.shortcutInHint != painted_.scene.shortcutInHint) {
    if (allocate(hint_, hintPicture_, paintHint(screen, scale, scene.shortcutInHint), scale)) {
      hint_.show(hintPicture_.buffer.get(), hintPicture_.width, hintPicture_.height);
      hint_.commit();
    }
  }
  const bool wanted = scene.banner && bannerPicture_.buffer;
  if (wanted == bannerShown_) return;
  bannerShown_ = wanted;
  if (wanted) {
    banner_.show(bannerPicture_.buffer.get(), bannerPicture_.width, bannerPicture_.height);
  } else {
    banner_.hide();
  }
  banner_.commit();
}

/// Gives a picture to the compositor and its part a place. False when there is no memory.
bool WaylandLayerWindows::allocate(WaylandSurface& part, NoticeBuffer& notice, const Notice& picture,
                                   double scale) {
  // Whole logical pixels, so that one pixel of the picture is one of the screen.
  const int width = static_cast<int>(std::ceil(picture.image.width() / scale));
  const int height = static_cast<int>(std::ceil(picture.image.height() / scale));
  const int columns = std::max(device(width, scale), picture.image.width());
  const int rows = std::max(device(height, scale), picture.image.height());
  auto memory = WaylandMemory::allocate(desktop_.connection().sharedMemory(),
                                        static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
  if (!memory) return false;
  QImage padded(reinterpret_cast<uchar*>(memory->pixels().data()), columns, rows,
                QImage::Format_ARGB32_Premultiplied);
  QPainter(&padded).drawImage(0, 0, picture.image);
  notice = {memory->makeBuffer(0, columns, rows), width, height};
  part.place(static_cast<int>(std::lround(picture.at.x() / scale)),
             static_cast<int>(std::lround(picture.at.y() / scale)));
  return true;
}

/// During an alert it stays through the dark moments of the flash. Not every compositor repaints what a part
/// that goes has covered, so it goes only with a scene that paints everything anew.
void WaylandLayerWindows::applyTint() {
  if (tintLevel_ == 0 && !scene_->banner) {
    if (!std::exchange(tintShown_, false)) return;
    tint_.hide();
  } else {
    tintShown_ = true;
    tint_.show(desktop_.palette().color(premultipliedTint(tintLevel_)), width_, height_);
  }
  tint_.commit();
}

}  // namespace sentrel
