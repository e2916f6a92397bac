// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/hint_painter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "look/fonts.h"
#include "look/icons.h"
#include "look/texts.h"

namespace sentrel {

namespace {
// Logical pixels.
constexpr double padding = 8;
constexpr double spacing = 4;
constexpr double eyeBox = 16;  // the drawing on its grid that is as large as a 14 px symbol
constexpr double opacity = 0.3;
}  // namespace

OverlayPicture paintHint(double scale, bool keys) {
  const QFont font = monoFont(11, QFont::Medium);
  const QFontMetricsF metrics(font);
  const QString shortcut = keys ? text(QStringLiteral("⌘⇧C")) : QString();
  const double textWidth = keys ? spacing + metrics.horizontalAdvance(shortcut) : 0;
  const double rowHeight = std::max(eyeBox, keys ? metrics.height() : 0);
  const QSizeF size(2 * padding + eyeBox + textWidth, 2 * padding + rowHeight);

  QImage image(static_cast<int>(std::ceil(size.width() * scale)),
               static_cast<int>(std::ceil(size.height() * scale)), QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(scale, scale);
  QColor color(Qt::white);
  color.setAlphaF(static_cast<float>(opacity));
  paintSymbol(painter, QStringLiteral("eye.fill"),
              QRectF(padding, padding + (rowHeight - eyeBox) / 2, eyeBox, eyeBox), color);
  painter.setFont(font);
  painter.setPen(color);
  // Centred by its capital letters, which is what the eye beside it is compared with.
  const double baseline = padding + rowHeight / 2 + metrics.capHeight() / 2;
  painter.drawText(QPointF(padding + eyeBox + spacing, baseline), shortcut);
  return {image, image.rect()};
}

}  // namespace sentrel
