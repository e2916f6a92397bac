// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/shadow.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <vector>

namespace sentrel {

namespace {

// The shadow falls off around the edge of a shape grown by this part of the radius, with this deviation: dark
// close to the shape, all but gone at the radius.
constexpr double growth = 0.3;
constexpr double deviation = 0.4;

// Three boxes in a row are a Gaussian to within 3 %; this is their width. Odd, so that the blur stays
// centred.
int boxWidth(double radius) {
  return static_cast<int>(std::lround(deviation * radius * std::sqrt(2 * std::numbers::pi) * 0.75)) | 1;
}

// A running mean of `box` values along `count` values that lie `step` apart; outside lies nothing.
void blurLine(float* values, std::size_t count, std::size_t step, std::size_t box, std::vector<float>& copy) {
  copy.resize(count);
  for (std::size_t i = 0; i < count; ++i) copy[i] = values[i * step];
  const std::size_t ahead = box / 2;
  double sum = 0;
  for (std::size_t i = 0; i < std::min(ahead, count); ++i) sum += copy[i];
  for (std::size_t i = 0; i < count; ++i) {
    if (i + ahead < count) sum += copy[i + ahead];
    values[i * step] = static_cast<float>(sum / static_cast<double>(box));
    if (i + ahead + 1 >= box) sum -= copy[i + ahead + 1 - box];
  }
}

}  // namespace

double shadowReach(double radius) {
  return growth * radius + 1.5 * boxWidth(radius);
}

void drawShadow(QImage& image, const QRect& shape, double cornerRadius, double radius, double opacity) {
  QImage mask(image.size(), QImage::Format_Alpha8);
  mask.fill(0);
  {
    QPainter painter(&mask);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::black);
    const double grown = growth * radius;
    painter.drawRoundedRect(QRectF(shape).adjusted(-grown, -grown, grown, grown), cornerRadius + grown,
                            cornerRadius + grown);
  }
  const auto width = static_cast<std::size_t>(image.width());
  const auto height = static_cast<std::size_t>(image.height());
  std::vector<float> values(width * height);
  for (std::size_t y = 0; y < height; ++y) {
    const uchar* from = mask.constScanLine(static_cast<int>(y));
    std::copy_n(from, width, values.begin() + static_cast<std::ptrdiff_t>(y * width));
  }
  const auto box = static_cast<std::size_t>(boxWidth(radius));
  std::vector<float> copy;
  for (int pass = 0; pass < 3; ++pass) {
    for (std::size_t y = 0; y < height; ++y) blurLine(values.data() + y * width, width, 1, box, copy);
    for (std::size_t x = 0; x < width; ++x) blurLine(values.data() + x, height, width, box, copy);
  }

  QImage shadow(image.size(), QImage::Format_ARGB32_Premultiplied);
  for (std::size_t y = 0; y < height; ++y) {
    auto* to = reinterpret_cast<QRgb*>(shadow.scanLine(static_cast<int>(y)));
    for (std::size_t x = 0; x < width; ++x) {
      to[x] = qRgba(0, 0, 0, static_cast<int>(std::lround(values[y * width + x] * opacity)));
    }
  }
  QPainter(&image).drawImage(0, 0, shadow);
}

}  // namespace sentrel
