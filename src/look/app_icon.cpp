// SPDX-License-Identifier: Apache-2.0
#include "look/app_icon.h"

#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QRadialGradient>
#include <cmath>

namespace sentrel {

namespace {

constexpr double units = 256;
constexpr double stripePeriod = 26;     // along the horizontal
constexpr double smallestStriped = 22;  // pixels

QPainterPath almond() {
  QPainterPath path(QPointF(36, 128));
  path.cubicTo(64, 82, 98, 68, 128, 68);
  path.cubicTo(158, 68, 192, 82, 220, 128);
  path.cubicTo(192, 174, 158, 188, 128, 188);
  path.cubicTo(98, 188, 64, 174, 36, 128);
  return path;
}

void paintStripes(QPainter& painter) {
  QLinearGradient fade(128, 0, 240, 0);
  fade.setColorAt(0, QColor(0x0B, 0x0E, 0x2E, 0));
  fade.setColorAt(1, QColor(0x0B, 0x0E, 0x2E, qRound(0.42 * 255)));
  QPainterPath stripes;
  const int count = static_cast<int>(std::ceil((2 * units - 128) / stripePeriod));
  for (int i = 0; i < count; ++i) {
    const double x = 128 + i * stripePeriod;
    // From the top edge down to the left at 45 degrees, half a period wide.
    stripes.addPolygon(
        QPolygonF({{x, 16}, {x + stripePeriod / 2, 16}, {x + stripePeriod / 2 - 224, 240}, {x - 224, 240}}));
  }
  QPainterPath right;
  right.addRect(128, 16, 112, 224);
  QPainterPath body;
  body.addRoundedRect(QRectF(16, 16, 224, 224), 54, 54);
  painter.fillPath(stripes.intersected(right).intersected(body), fade);
}

}  // namespace

void paintAppIcon(QPainter& painter, const QRectF& box) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(box.topLeft());
  painter.scale(box.width() / units, box.height() / units);
  painter.setPen(Qt::NoPen);

  QLinearGradient ground(0, 16, 0, 240);
  ground.setColorAt(0, QColor(0x66, 0x73, 0xF2));
  ground.setColorAt(1, QColor(0x27, 0x2F, 0x8C));
  painter.setBrush(ground);
  painter.drawRoundedRect(QRectF(16, 16, 224, 224), 54, 54);

  QLinearGradient white(0, 68, 0, 188);
  white.setColorAt(0, Qt::white);
  white.setColorAt(1, QColor(0xDD, 0xE2, 0xFB));
  painter.fillPath(almond(), white);

  QRadialGradient iris(QPointF(118.8, 115.1), 69);
  iris.setColorAt(0, QColor(0x8F, 0x9A, 0xFF));
  iris.setColorAt(0.55, QColor(0x43, 0x50, 0xCF));
  iris.setColorAt(1, QColor(0x23, 0x2A, 0x7A));
  painter.setBrush(iris);
  painter.drawEllipse(QPointF(128, 128), 46, 46);
  painter.setBrush(QColor(0x12, 0x14, 0x2E));
  painter.drawEllipse(QPointF(128, 128), 21, 21);

  if (box.width() > smallestStriped) paintStripes(painter);
  painter.setBrush(Qt::white);
  painter.drawEllipse(QPointF(113, 111), 10, 10);
  painter.restore();
}

QIcon appIcon() {
  QIcon icon;
  for (const int size : {16, 22, 32, 48, 64, 128}) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    paintAppIcon(painter, QRectF(0, 0, size, size));
    painter.end();
    icon.addPixmap(QPixmap::fromImage(image));
  }
  return icon;
}

}  // namespace sentrel
