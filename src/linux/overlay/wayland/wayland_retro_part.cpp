// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_retro_part.h"

#include <QImage>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace sentrel {

WaylandRetroPart::WaylandRetroPart(WaylandDesktop& desktop, wl_surface* parent,
                                   const WaylandRetroContent& content)
    : desktop_(desktop),
      content_(content),
      picture_(desktop.connection(), parent),
      dot_(desktop.connection(), parent),
      pictureChange_(content.picture.onChange([this](const auto&) {
        showPicture();
        desktop_.flush();
      })),
      blinkChange_(content.blink.onChange([this](BlinkLevel) {
        showDot();
        desktop_.flush();
      })) {}

void WaylandRetroPart::place(const Rect& output, double scale) {
  if (!painter_ || painter_->scale() != scale) prepare(scale);
  const Rect place = placeRetro(output, 1);
  picture_.place(place.x, place.y);
  dot_.place(place.x + dotPlace_.x, place.y + dotPlace_.y);
  showPicture();
  showDot();
}

void WaylandRetroPart::prepare(double scale) {
  painter_.emplace(scale);
  const QRect& dot = painter_->dotPlace();
  // The whole logical pixels around it.
  const auto floor = [scale](int device) { return static_cast<int>(std::floor(device / scale)); };
  const auto ceil = [scale](int device) { return static_cast<int>(std::ceil(device / scale)); };
  dotPlace_ = {floor(dot.left()), floor(dot.top()), ceil(dot.right() + 1) - floor(dot.left()),
               ceil(dot.bottom() + 1) - floor(dot.top())};
  if (!paintDots()) dots_ = {};
}

/// Without memory the former picture stays.
void WaylandRetroPart::showPicture() {
  if (!painter_) return;
  const int width = painter_->width();
  const int height = painter_->height();
  WaylandPicture* next = pictures_.idle(width, height);
  if (next == nullptr) {
    auto memory = WaylandMemory::allocate(desktop_.connection().sharedMemory(),
                                          static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    if (!memory) return;
    next = &pictures_.add(std::move(*memory), width, height);
  }
  painter_->paint(content_.picture.get().get(), next->memory.pixels());
  const Rect size = placeRetro({}, 1);
  picture_.show(next->buffer.get(), size.width, size.height);
  picture_.commit();
  next->shown = true;
}

void WaylandRetroPart::showDot() {
  const auto& dot = dots_[static_cast<std::size_t>(std::clamp(content_.blink.get(), 0, brightestBlink))];
  if (!dot) return;
  dot_.show(dot.get(), dotPlace_.width, dotPlace_.height);
  dot_.commit();
}

/// All levels at once: from then on a change is three requests. False when there is no memory.
bool WaylandRetroPart::paintDots() {
  const double scale = painter_->scale();
  const QRect& dot = painter_->dotPlace();
  const int width = std::max(dot.width(), static_cast<int>(std::lround(dotPlace_.width * scale)));
  const int height = std::max(dot.height(), static_cast<int>(std::lround(dotPlace_.height * scale)));
  const QPoint offset(dot.x() - static_cast<int>(std::lround(dotPlace_.x * scale)),
                      dot.y() - static_cast<int>(std::lround(dotPlace_.y * scale)));
  const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  auto memory = WaylandMemory::allocate(desktop_.connection().sharedMemory(), pixels * dots_.size());
  if (!memory) return false;
  for (std::size_t level = 0; level < dots_.size(); ++level) {
    auto* first = reinterpret_cast<uchar*>(memory->pixels().subspan(level * pixels).data());
    QImage image(first, width, height, QImage::Format_ARGB32_Premultiplied);
    QPainter(&image).drawImage(offset, painter_->dot(static_cast<BlinkLevel>(level)));
    dots_[level] = memory->makeBuffer(level * pixels, width, height);
  }
  return true;
}

}  // namespace sentrel
