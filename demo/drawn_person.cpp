// SPDX-License-Identifier: Apache-2.0
#include "drawn_person.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>

namespace sentrel::test {

namespace {
void draw(QPainter& painter) {
  painter.setRenderHint(QPainter::Antialiasing);
  QLinearGradient wall(0, 0, 640, 480);
  wall.setColorAt(0, QColor(0x2E, 0x38, 0x48));
  wall.setColorAt(1, QColor(0x52, 0x62, 0x7A));
  painter.fillRect(0, 0, 640, 480, wall);
  painter.fillRect(70, 120, 130, 12, QColor(0x27, 0x30, 0x3E));
  painter.fillRect(70, 200, 130, 12, QColor(0x27, 0x30, 0x3E));
  for (int i = 0; i < 7; ++i)
    painter.fillRect(80 + i * 16, 150 - i % 3 * 6, 12, 50 + i % 3 * 6, QColor::fromHsv(i * 47, 90, 170));
  painter.fillRect(450, 40, 130, 170, QColor(0x90, 0xB4, 0xD0));
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(0x2C, 0x59, 0x6A));
  painter.drawEllipse(QRectF(190, 350, 260, 240));
  painter.setBrush(QColor(0xC9, 0x93, 0x6C));
  painter.drawRect(QRectF(295, 290, 50, 80));
  painter.setBrush(QColor(0x3A, 0x28, 0x22));
  painter.drawEllipse(QRectF(245, 140, 150, 150));
  painter.setBrush(QColor(0xDE, 0xAB, 0x86));
  painter.drawEllipse(QRectF(255, 165, 130, 160));
  painter.setBrush(QColor(0x24, 0x1A, 0x16));
  painter.drawEllipse(QPointF(293, 235), 8, 6);
  painter.drawEllipse(QPointF(347, 235), 8, 6);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(QColor(0x24, 0x1A, 0x16), 4));
  painter.drawArc(QRectF(295, 255, 50, 30), 200 * 16, 140 * 16);
}
}  // namespace

FrameRef drawnPerson() {
  auto frame = std::make_shared<Frame>();
  frame->resize(640, 480);
  QImage image(frame->data(), 640, 480, frame->stride(), QImage::Format_RGB32);
  QPainter painter(&image);
  draw(painter);
  return frame;
}

}  // namespace sentrel::test
