// SPDX-License-Identifier: Apache-2.0
#include "look/status_bar_icon.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include "look/palette.h"

namespace sentrel {

namespace {

// The drawing is made on 18 by 18 units around the centre, with y growing upwards.
constexpr double units = 18;
constexpr double irisDiameter = 8.84;
constexpr double pupilDiameter = 4.0664;

QColor faint(QColor color, float alpha) {
  color.setAlphaF(alpha);
  return color;
}

void paintOpenEye(QPainter& painter, const QColor& iris, const QColor& label) {
  QPainterPath almond(QPointF(-7.5, 0));
  almond.cubicTo(-2.5, -4.25, 2.5, -4.25, 7.5, 0);
  almond.cubicTo(2.5, 4.25, -2.5, 4.25, -7.5, 0);
  almond.closeSubpath();
  painter.fillPath(almond, faint(label, 0.08F));
  painter.setPen(Qt::NoPen);
  painter.setBrush(iris);
  painter.drawEllipse(QPointF(0, 0), irisDiameter / 2, irisDiameter / 2);
  painter.setBrush(label);
  painter.drawEllipse(QPointF(0, 0), pupilDiameter / 2, pupilDiameter / 2);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(faint(label, 0.75F), 1.0));
  painter.drawPath(almond);
}

void paintClosedEye(QPainter& painter, const QColor& label) {
  QPainterPath lid(QPointF(-7.5, 0));
  lid.cubicTo(-1.5, 4.42, 1.5, 4.42, 7.5, 0);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(faint(label, 0.6F), 1.5, Qt::SolidLine, Qt::RoundCap));
  painter.drawPath(lid);
}

}  // namespace

void StatusBarIcon::paint(QPainter& painter, const QRectF& box, IconState state, const QColor& label) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(box.center());
  painter.scale(box.width() / units, -box.height() / units);
  switch (state) {
    case IconState::nominal:
      paintOpenEye(painter, fixed_colors::trayIris, label);
      break;
    case IconState::alert:
      paintOpenEye(painter, fixed_colors::trayRed, label);
      break;
    case IconState::inactive:
      paintClosedEye(painter, label);
      break;
    case IconState::paused:
      paintClosedEye(painter, label);
      painter.drawLine(QPointF(-6, -3.6), QPointF(6, 3.6));
      break;
  }
  painter.restore();
}

QIcon StatusBarIcon::make(IconState state, const QColor& label) {
  QIcon icon;
  for (const int size : {16, 18, 22, 24, 32, 36, 44, 48, 64}) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    paint(painter, QRectF(0, 0, size, size), state, label);
    painter.end();
    icon.addPixmap(QPixmap::fromImage(image));
  }
  return icon;
}

QColor StatusBarIcon::labelOn(const QColor& ground) {
  return ground.lightnessF() < 0.5F ? QColor(Qt::white) : QColor(0x1D, 0x1D, 0x22);
}

}  // namespace sentrel
