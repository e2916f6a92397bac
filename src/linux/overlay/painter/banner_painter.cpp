// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/banner_painter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "linux/overlay/painter/shadow.h"
#include "look/fonts.h"
#include "look/icons.h"
#include "look/palette.h"
#include "look/texts.h"

namespace sentrel {

namespace {

// Logical pixels.
constexpr double horizontalPadding = 32;
constexpr double verticalPadding = 22;
constexpr double symbolBox = 44;  // a drawing on its grid needs this much to stand as high as a 36 px letter
constexpr double symbolGap = 16;
constexpr double lineGap = 5;
constexpr double cornerRadius = 20;
constexpr double shadowRadius = 30;
constexpr double titleTracking = 0.3;

constexpr double fillOpacity = 0.88;
constexpr double shadowOpacity = 0.5;
constexpr double secondLineOpacity = 0.85;

struct Line {
  QString text;
  QFont font;
  QColor color;
  QSizeF size;
};

Line line(const QString& key, const QFont& font, double opacity) {
  const QFontMetricsF metrics(font);
  QColor white(Qt::white);
  white.setAlphaF(static_cast<float>(opacity));
  return {text(key), font, white, QSizeF(metrics.horizontalAdvance(text(key)), std::ceil(metrics.height()))};
}

void drawLine(QPainter& painter, const Line& line, QPointF topLeft) {
  painter.setFont(line.font);
  painter.setPen(line.color);
  painter.drawText(QPointF(topLeft.x(), topLeft.y() + QFontMetricsF(line.font).ascent()), line.text);
}

}  // namespace

OverlayPicture paintBanner(double scale, BannerStyle style) {
  QFont titleFont = uiFont(24, QFont::Black);
  titleFont.setLetterSpacing(QFont::AbsoluteSpacing, titleTracking);
  const Line title = line(QStringLiteral("REGARD INDISCRET"), titleFont, 1);
  const Line second =
      line(QStringLiteral("Quelqu'un observe votre écran"), uiFont(15, QFont::Medium), secondLineOpacity);

  const double textWidth = std::max(title.size.width(), second.size.width());
  const double textHeight = title.size.height() + lineGap + second.size.height();
  const QSizeF size(2 * horizontalPadding + symbolBox + symbolGap + textWidth,
                    2 * verticalPadding + std::max(symbolBox, textHeight));

  const bool translucent = style == BannerStyle::translucent;
  const int margin = translucent ? static_cast<int>(std::ceil(shadowReach(shadowRadius * scale))) : 0;
  const QRect body(margin, margin, static_cast<int>(std::ceil(size.width() * scale)),
                   static_cast<int>(std::ceil(size.height() * scale)));
  QImage image(body.width() + 2 * margin, body.height() + 2 * margin, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  if (translucent) {
    drawShadow(image, body, cornerRadius * scale, shadowRadius * scale, shadowOpacity);
  }

  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(body.topLeft());
  painter.scale(scale, scale);
  QColor fill = fixed_colors::alertRed;
  if (translucent) fill.setAlphaF(static_cast<float>(fillOpacity));
  painter.setPen(Qt::NoPen);
  painter.setBrush(fill);
  painter.drawRoundedRect(QRectF(0, 0, body.width() / scale, body.height() / scale), cornerRadius,
                          cornerRadius);

  paintSymbol(painter, QStringLiteral("eye.trianglebadge.exclamationmark.fill"),
              QRectF(horizontalPadding, (size.height() - symbolBox) / 2, symbolBox, symbolBox), Qt::white);
  const QPointF textAt(horizontalPadding + symbolBox + symbolGap, (size.height() - textHeight) / 2);
  drawLine(painter, title, textAt);
  drawLine(painter, second, textAt + QPointF(0, title.size.height() + lineGap));
  return {image, body};
}

}  // namespace sentrel
