// SPDX-License-Identifier: Apache-2.0
#include "look/icons.h"

#include <QFile>
#include <QHash>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPixmap>
#include <QRadialGradient>
#include <QXmlStreamReader>
#include <cmath>
#include <initializer_list>
#include <vector>

#include "look/palette.h"

namespace sentrel {

// Symbols.

namespace {

constexpr double symbolUnits = 24;

/// Reads the path data of our own drawings, which have no other commands than the absolute M, L, C and Z.
QPainterPath readPath(QString data) {
  for (const QChar command : QStringView(u"MLCZ")) data.replace(command, u' ' + command + u' ');
  const QStringList words = data.split(u' ', Qt::SkipEmptyParts);
  QPainterPath path;
  QChar command;
  std::vector<double> n;  // the numbers behind it
  for (const QString& word : words) {
    if (word.front().isLetter()) {
      command = word.front();
      if (command == u'Z') path.closeSubpath();
      continue;
    }
    n.push_back(word.toDouble());
    if (n.size() < (command == u'C' ? 6 : 2)) continue;
    if (command == u'C') {
      path.cubicTo(n[0], n[1], n[2], n[3], n[4], n[5]);
    } else if (command == u'M') {
      path.moveTo(n[0], n[1]);
      command = u'L';
    } else {
      path.lineTo(n[0], n[1]);
    }
    n.clear();
  }
  return path;
}

// Every drawing is one <path> over the whole grid, so that reading its data is all there is to SVG here.
QPainterPath readSymbol(const QString& symbol) {
  QFile file(QStringLiteral(":/sentrel/icons/%1.svg").arg(symbol));
  if (!file.open(QIODevice::ReadOnly)) return {};
  QXmlStreamReader xml(&file);
  while (!xml.atEnd()) {
    if (xml.readNext() == QXmlStreamReader::StartElement && xml.name() == u"path")
      return readPath(xml.attributes().value(QLatin1String("d")).toString());
  }
  return {};
}

/// An icon that `paint` draws in each of the sizes.
template <class Paint>
QIcon drawnIcon(std::initializer_list<int> sizes, const Paint& paint) {
  QIcon icon;
  for (const int size : sizes) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    paint(painter, QRectF(0, 0, size, size));
    painter.end();
    icon.addPixmap(QPixmap::fromImage(image));
  }
  return icon;
}

}  // namespace

const QPainterPath& symbolPath(const QString& symbol) {
  static QHash<QString, QPainterPath> paths;
  const auto found = paths.constFind(symbol);
  return found != paths.constEnd() ? *found : *paths.insert(symbol, readSymbol(symbol));
}

void paintSymbol(QPainter& painter, const QString& symbol, const QRectF& box, const QColor& color) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(box.topLeft());
  painter.scale(box.width() / symbolUnits, box.height() / symbolUnits);
  painter.fillPath(symbolPath(symbol), color);
  painter.restore();
}

// The application's icon.

namespace {

constexpr double appUnits = 256;
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
  const int count = static_cast<int>(std::ceil((2 * appUnits - 128) / stripePeriod));
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
  painter.scale(box.width() / appUnits, box.height() / appUnits);
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
  return drawnIcon({16, 22, 32, 48, 64, 128}, paintAppIcon);
}

// The icon in the panel.

namespace {

// The drawing is made on 18 by 18 units around the centre, with y growing upwards.
constexpr double statusUnits = 18;
constexpr double irisDiameter = 8.84;
constexpr double pupilDiameter = 4.0664;
constexpr double closedStroke = 1.5;
constexpr double outline = 1.5 * statusUnits / 16;  // 1.5 pixels where they are fewest

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

/// Strokes each on its own outline, which is seen where the panel has the strokes' colour after all: nobody
/// tells how dark it is.
void paintClosedEye(QPainter& painter, const QColor& label, bool isStruck) {
  QPainterPath lid(QPointF(-7.5, 0));
  lid.cubicTo(-1.5, 4.42, 1.5, 4.42, 7.5, 0);
  QPainterPath bar(QPointF(-6, -3.6));
  bar.lineTo(6, 3.6);
  const auto stroke = [&](const QColor& color, double width) {
    painter.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap));
    painter.drawPath(lid);
    if (isStruck) painter.drawPath(bar);
  };
  painter.setBrush(Qt::NoBrush);
  stroke(StatusBarIcon::labelOn(label), closedStroke + 2 * outline);
  stroke(faint(label, 0.6F), closedStroke);
}

}  // namespace

void StatusBarIcon::paint(QPainter& painter, const QRectF& box, IconState state, const QColor& label) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(box.center());
  painter.scale(box.width() / statusUnits, -box.height() / statusUnits);
  switch (state) {
    case IconState::nominal:
      paintOpenEye(painter, fixed_colors::trayIris, label);
      break;
    case IconState::alert:
      paintOpenEye(painter, fixed_colors::trayRed, label);
      break;
    case IconState::inactive:
      paintClosedEye(painter, label, false);
      break;
    case IconState::paused:
      paintClosedEye(painter, label, true);
      break;
  }
  painter.restore();
}

QIcon StatusBarIcon::make(IconState state, const QColor& label) {
  return drawnIcon({16, 18, 22, 24, 32, 36, 44, 48, 64},
                   [&](QPainter& painter, const QRectF& box) { paint(painter, box, state, label); });
}

QColor StatusBarIcon::labelOn(const QColor& ground) {
  return ground.lightnessF() < 0.5F ? QColor(Qt::white) : QColor(0x1D, 0x1D, 0x22);
}

}  // namespace sentrel
