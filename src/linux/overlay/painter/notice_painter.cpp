// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/notice_painter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <vector>

#include "look/fonts.h"
#include "look/icons.h"
#include "look/palette.h"

namespace sentrel {

namespace {

/// Lengths of the banner in logical pixels, and its opacities.
namespace banner {
constexpr double horizontalPadding = 32;
constexpr double verticalPadding = 22;
constexpr double symbolBox = 44;  // a drawing on its grid needs this much to stand as high as a 36 px letter
constexpr double symbolGap = 16;
constexpr double lineGap = 5;
constexpr double cornerRadius = 20;
constexpr double shadowRadius = 30;
constexpr double titleTracking = 0.3;
constexpr double bottomGap = 80;
constexpr double fillOpacity = 0.88;
constexpr double shadowOpacity = 0.5;
constexpr double secondLineOpacity = 0.85;
}  // namespace banner

/// Those of the hint.
namespace hint {
constexpr double padding = 8;
constexpr double spacing = 4;
constexpr double eyeBox = 16;  // the drawing on its grid that is as large as a 14 px symbol
constexpr double opacity = 0.3;
}  // namespace hint

// The shadow falls off around the edge of a shape grown by this share of the radius, with this deviation:
// dark close to the shape, all but gone at the radius.
constexpr double shadowGrowth = 0.3;
constexpr double shadowDeviation = 0.4;

QColor white(double opacity) {
  return QColor::fromRgbF(1, 1, 1, static_cast<float>(opacity));
}

struct Line {
  QString text;
  QFont font;
  QColor color;
  QSizeF size;
};

Line line(const QString& text, const QFont& font, double opacity) {
  const QFontMetricsF metrics(font);
  return {text, font, white(opacity), QSizeF(metrics.horizontalAdvance(text), std::ceil(metrics.height()))};
}

void drawLine(QPainter& painter, const Line& line, QPointF topLeft) {
  painter.setFont(line.font);
  painter.setPen(line.color);
  painter.drawText(QPointF(topLeft.x(), topLeft.y() + QFontMetricsF(line.font).ascent()), line.text);
}

/// Three boxes in a row are a Gaussian to within 3 %; this is their width. Odd, so that the blur stays
/// centred.
int boxWidth(double radius) {
  return static_cast<int>(std::lround(shadowDeviation * radius * std::sqrt(2 * std::numbers::pi) * 0.75)) | 1;
}

/// How far a shadow of this radius is drawn around its shape: the last faint pixels lie beyond the radius.
int shadowReach(double radius) {
  return static_cast<int>(std::ceil(shadowGrowth * radius + 1.5 * boxWidth(radius)));
}

/// A running mean of `box` values along `count` values that lie `step` apart; outside lies nothing.
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

/// Draws the soft black shadow of a rounded rectangle: of `opacity` under the shape, fading to nothing at the
/// distance `radius`. Lengths are pixels of the image.
void drawShadow(QImage& image, const QRect& shape, double cornerRadius, double radius, double opacity) {
  QImage mask(image.size(), QImage::Format_Alpha8);
  mask.fill(0);
  {
    QPainter painter(&mask);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::black);
    const double grown = shadowGrowth * radius;
    painter.drawRoundedRect(QRectF(shape).adjusted(-grown, -grown, grown, grown), cornerRadius + grown,
                            cornerRadius + grown);
  }
  const auto width = static_cast<std::size_t>(image.width());
  const auto height = static_cast<std::size_t>(image.height());
  std::vector<float> values(width * height);
  for (std::size_t y = 0; y < height; ++y) {
    std::copy_n(mask.constScanLine(static_cast<int>(y)), width, values.data() + y * width);
  }
  const auto box = static_cast<std::size_t>(boxWidth(radius));
  std::vector<float> copy;
  for (int pass = 0; pass < 3; ++pass) {
    for (std::size_t y = 0; y < height; ++y) blurLine(values.data() + y * width, width, 1, box, copy);
    for (std::size_t x = 0; x < width; ++x) blurLine(values.data() + x, height, width, box, copy);
  }
  for (std::size_t y = 0; y < height; ++y) {
    auto* to = reinterpret_cast<QRgb*>(image.scanLine(static_cast<int>(y)));
    for (std::size_t x = 0; x < width; ++x) {
      to[x] = qRgba(0, 0, 0, static_cast<int>(std::lround(values[y * width + x] * opacity)));
    }
  }
}

}  // namespace

Notice paintBanner(const Rect& screen, double scale, BannerStyle style) {
  using namespace banner;
  QFont titleFont = uiFont(24, QFont::Black);
  titleFont.setLetterSpacing(QFont::AbsoluteSpacing, titleTracking);
  const Line title = line(qtTrId("REGARD INDISCRET"), titleFont, 1);
  const Line second =
      line(qtTrId("Quelqu'un observe votre écran"), uiFont(15, QFont::Medium), secondLineOpacity);
  const double textWidth = std::max(title.size.width(), second.size.width());
  const double textHeight = title.size.height() + lineGap + second.size.height();
  const QSizeF size(2 * horizontalPadding + symbolBox + symbolGap + textWidth,
                    2 * verticalPadding + std::max(symbolBox, textHeight));

  const bool translucent = style == BannerStyle::translucent;
  const int margin = translucent ? shadowReach(shadowRadius * scale) : 0;
  const QRect body(margin, margin, static_cast<int>(std::ceil(size.width() * scale)),
                   static_cast<int>(std::ceil(size.height() * scale)));
  QImage image(body.width() + 2 * margin, body.height() + 2 * margin, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  if (translucent) drawShadow(image, body, cornerRadius * scale, shadowRadius * scale, shadowOpacity);

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

  const int left = screen.x + (screen.width - body.width()) / 2;
  const int bottom = screen.y + screen.height - qRound(bottomGap * scale);
  return {image, QPoint(left, bottom - body.height()) - body.topLeft()};
}

Notice paintHint(const Rect& screen, double scale, bool keys) {
  using namespace hint;
  const QFont font = monoFont(11, QFont::Medium);
  const QFontMetricsF metrics(font);
  const QString shortcut = keys ? qtTrId("⌘⇧C") : QString();
  const double textWidth = keys ? spacing + metrics.horizontalAdvance(shortcut) : 0;
  const double rowHeight = std::max(eyeBox, keys ? metrics.height() : 0);
  const QSizeF size(2 * padding + eyeBox + textWidth, 2 * padding + rowHeight);

  QImage image(static_cast<int>(std::ceil(size.width() * scale)),
               static_cast<int>(std::ceil(size.height() * scale)), QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(scale, scale);
  paintSymbol(painter, QStringLiteral("eye.fill"),
              QRectF(padding, padding + (rowHeight - eyeBox) / 2, eyeBox, eyeBox), white(opacity));
  painter.setFont(font);
  painter.setPen(white(opacity));
  // Centred by its capital letters, which is what the eye beside it is compared with.
  const double baseline = padding + rowHeight / 2 + metrics.capHeight() / 2;
  painter.drawText(QPointF(padding + eyeBox + spacing, baseline), shortcut);
  return {image, QPoint(screen.x + screen.width - image.width(), screen.y)};
}

}  // namespace sentrel
