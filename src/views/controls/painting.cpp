// SPDX-License-Identifier: Apache-2.0
#include "views/controls/painting.h"

#include <qdrawutil.h>
#include <QHash>
#include <QImage>
#include <QPixmap>
#include <algorithm>
#include <cmath>
#include <utility>

#include "views/theme.h"

namespace sentrel {

namespace {

constexpr double shadowOffset = 6;  // downwards
constexpr double shadowBlur = 24;   // twice the standard deviation of the blur

/// Distance of a point from the edge of a rounded rectangle of half size `half`, negative inside.
double distance(double x, double y, double half, double radius) {
  const double dx = std::abs(x) - half + radius;
  const double dy = std::abs(y) - half + radius;
  return std::hypot(std::max(dx, 0.0), std::max(dy, 0.0)) + std::min(std::max(dx, dy), 0.0) - radius;
}

/// The shadow of the smallest box that shows it whole; its middle row and column are stretched for larger
/// ones.
QImage renderShadow(double radius, const QColor& color, double scale) {
  const int reach = shadowReach;
  const double half = radius + shadowBlur;
  const int size = static_cast<int>(std::ceil(2 * (half + reach) * scale)) | 1;
  QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
  const double middle = (size - 1) / 2.0;
  const double sigma = shadowBlur / 2;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const double d = distance((x - middle) / scale, (y - middle) / scale, half, radius);
      const double share = 0.5 * std::erfc(d / (sigma * std::sqrt(2.0)));
      image.setPixelColor(x, y, withAlpha(color, color.alphaF() * share));
    }
  }
  return image;
}

const QPixmap& shadowImage(double radius, const QColor& color, double scale) {
  static QHash<QString, QPixmap> images;
  const QString key = QStringLiteral("%1/%2/%3").arg(radius).arg(color.rgba()).arg(scale);
  const auto found = images.constFind(key);
  return found != images.constEnd()
             ? *found
             : *images.insert(key, QPixmap::fromImage(renderShadow(radius, color, scale)));
}

}  // namespace

void paintBox(QPainter& painter, const QRectF& rect, double radius, const QColor& fill, const QColor& edge,
              double edgeWidth) {
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(edge.isValid() ? QPen(edge, edgeWidth) : QPen(Qt::NoPen));
  painter.setBrush(fill.isValid() ? QBrush(fill) : QBrush(Qt::NoBrush));
  const double inset = edge.isValid() ? edgeWidth / 2 : 0;
  const double inner = std::min(radius, std::min(rect.width(), rect.height()) / 2) - inset;
  painter.drawRoundedRect(rect.adjusted(inset, inset, -inset, -inset), inner, inner);
}

void paintWords(QPainter& painter, const QRectF& box, const QString& words, const QFont& font,
                const QColor& color, Qt::Alignment alignment, Qt::TextElideMode cut) {
  painter.setFont(font);
  painter.setPen(color);
  painter.drawText(box, static_cast<int>(alignment) | Qt::TextSingleLine,
                   QFontMetricsF(font).elidedText(words, cut, box.width()));
}

QRectF squareIn(const QRectF& around, double size) {
  return {around.center() - QPointF(size / 2, size / 2), QSizeF(size, size)};
}

QColor mix(const QColor& from, const QColor& to, double share) {
  const auto channel = [share](float a, float b) { return static_cast<float>(a + (b - a) * share); };
  return QColor::fromRgbF(channel(from.redF(), to.redF()), channel(from.greenF(), to.greenF()),
                          channel(from.blueF(), to.blueF()), channel(from.alphaF(), to.alphaF()));
}

QColor withAlpha(QColor color, double alpha) {
  color.setAlphaF(static_cast<float>(std::clamp(alpha, 0.0, 1.0)));
  return color;
}

void paintShadow(QPainter& painter, const QRectF& box, double radius, double strength) {
  if (Theme::shared().highContrast()) return;
  const double scale = painter.device()->devicePixelRatioF();
  const QColor color = Theme::shared().dark() ? QColor::fromRgbF(0, 0, 0, static_cast<float>(0.45 * strength))
                                              : withAlpha(QColor(13, 15, 46), 0.16 * strength);
  const QPixmap& image = shadowImage(radius, color, scale);
  const int corner = qRound(radius + shadowBlur) + shadowReach;  // logical
  const int edge = image.width() / 2;                            // physical
  const QRect outer =
      box.translated(0, shadowOffset).toRect().adjusted(-shadowReach, -shadowReach, shadowReach, shadowReach);
  const int side = std::min(corner, outer.width() / 2);
  const int height = std::min(corner, outer.height() / 2);
  painter.save();
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  qDrawBorderPixmap(&painter, outer, {side, height, side, height}, image, image.rect(),
                    {edge, edge, edge, edge});
  painter.restore();
}

Canvas::Canvas(Paint paint, int pixels) : paint_(std::move(paint)), pixels_(pixels) {
  if (pixels > 0) setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QSize Canvas::sizeHint() const {
  return pixels_ > 0 ? QSize(1, 1) * Theme::shared().iconSize(pixels_) : QWidget::sizeHint();
}

void Canvas::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paint_(painter, QRectF(rect()));
}

}  // namespace sentrel
