// SPDX-License-Identifier: Apache-2.0
#include "look/eye.h"

#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <array>

namespace sentrel {

namespace {

const QColor pupilColor(0x15, 0x17, 0x2A);

void paintClosed(QPainter& painter, const QColor& color) {
  QPainterPath lid(QPointF(7, 29));
  lid.cubicTo(19, 45, 45, 45, 57, 29);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(color, 3.8, Qt::SolidLine, Qt::RoundCap));
  painter.drawPath(lid);
  painter.setPen(QPen(color, 3.2, Qt::SolidLine, Qt::RoundCap));
  constexpr std::array<std::array<double, 4>, 4> lashes{
      {{14, 36.6, 10.6, 43}, {25, 40.4, 23.6, 47.6}, {39, 40.4, 40.4, 47.6}, {50, 36.6, 53.4, 43}}};
  for (const auto& [x1, y1, x2, y2] : lashes) painter.drawLine(QPointF(x1, y1), QPointF(x2, y2));
}

void paintOpen(QPainter& painter, const Eye& eye) {
  const double upper = 32 - 20 * eye.openness + 14 * (1 - eye.openness);
  const double lower = 32 + 20 * eye.openness + 14 * (1 - eye.openness);
  QPainterPath almond(QPointF(5, 32));
  almond.cubicTo(17, upper, 47, upper, 59, 32);
  almond.cubicTo(47, lower, 17, lower, 5, 32);
  almond.closeSubpath();
  const bool dark = eye.scheme == AppColors::Scheme::dark;
  painter.fillPath(almond, dark ? QColor(0x15, 0x16, 0x1C) : QColor(Qt::white));

  painter.save();
  painter.setClipPath(almond);
  QRadialGradient iris(QPointF(32, 32), 12.2, QPointF(29, 28));
  iris.setColorAt(0, eye.color.lighter(dark ? 112 : 135));
  iris.setColorAt(1, eye.color);
  painter.setPen(Qt::NoPen);
  painter.setBrush(iris);
  painter.drawEllipse(QPointF(32, 32), 12.2, 12.2);
  painter.setBrush(pupilColor);
  painter.drawEllipse(QPointF(32, 32), eye.pupil, eye.pupil);
  painter.setBrush(Qt::white);
  painter.drawEllipse(QPointF(36, 27.6), 2.5, 2.5);
  painter.restore();

  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(eye.color, 3.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.drawPath(almond);
}

}  // namespace

void paintEye(QPainter& painter, const QRectF& box, const Eye& eye) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(box.topLeft());
  painter.scale(box.width() / eyeUnits, box.height() / eyeUnits);
  eye.isClosed() ? paintClosed(painter, eye.color) : paintOpen(painter, eye);
  painter.restore();
}

}  // namespace sentrel
