// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/scene_painter.h"

#include <libyuv/planar_functions.h>

#include <QColor>
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

// Below this period the pattern is finer than any screen shows; it also keeps a broken value from dividing by
// zero.
constexpr double leastPeriod = 0.1;

/// How much of a pixel lies under diagonal stripes that start at one diagonal of distance from the centre of
/// a width by height picture and are as wide as the gaps between them.
///
/// Stripes lie across the line x + y, so a pixel is known by the sum of its column and row. Over the pixel's
/// square, x + y is distributed as a triangle two pixels wide: two boxes folded. The covered share is thus
/// the second difference of the twofold integral of the stripes' indicator function: exact, without sampling.
class StripeCoverage {
 public:
  /// All lengths in device pixels, `period` across the stripes and above 0.
  StripeCoverage(double width, double height, double period)
      // A step of one pixel along x + y is 1/sqrt(2) pixels across the stripes. The pattern turns around the
      // centre, (width + height) / 2 along x + y, and its first stripe begins one diagonal before it. Any
      // whole number of periods away is the same pattern; near zero the integral loses no digits.
      : period_(period * std::numbers::sqrt2),
        start_(std::fmod((width + height) / 2 - std::hypot(width, height) * std::numbers::sqrt2, period_)) {}

  /// 0..1, for the pixel of column + row = `sum`.
  [[nodiscard]] double at(int sum) const {
    const double t = sum - start_;
    // Whole periods taken off likewise: the difference must not drown in large numbers.
    const double base = t - std::floor(t / period_) * period_;
    return std::clamp(integral(base + 2) - 2 * integral(base + 1) + integral(base), 0.0, 1.0);
  }

 private:
  /// The twofold integral, from 0 to t, of a function that is 1 in the first half of each period and 0 in the
  /// second half.
  [[nodiscard]] double integral(double t) const {
    const double half = period_ / 2;
    const double whole = std::floor(t / period_);
    const double rest = t - whole * period_;
    // Each whole period leaves `half` behind in the first integral and, inside itself, 3/8 of its square.
    const double full = whole * (0.375 * period_ * period_) + half * period_ * whole * (whole - 1) / 2;
    const double begun = rest < half ? rest * rest / 2 : half * half / 2 + half * (rest - half);
    return full + whole * half * rest + begun;
  }

  double period_;  // along x + y
  double start_;   // where, along x + y, a stripe begins
};

double unit(double value) {
  return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
}

/// `rgb` at `alpha` under black at `veil`, premultiplied.
std::uint32_t pixel(std::uint32_t rgb, double alpha, double veil) {
  const auto byte = [](double value) { return static_cast<std::uint32_t>(std::lround(value * 255)); };
  const double light = alpha * (1 - veil);
  const auto channel = [&](unsigned shift) { return byte((rgb >> shift & 0xFFU) / 255.0 * light) << shift; };
  return byte(veil + light) << 24 | channel(16) | channel(8) | channel(0);
}

double layerAlpha(const std::optional<StripePattern>& stripes) {
  return stripes ? unit(stripes->stripeAlpha) * unit(stripes->layerAlpha) : 0;
}

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

/// Draws the soft black shadow of a rounded rectangle on a transparent image: of `opacity` under the shape,
/// fading to nothing at the distance `radius`. Lengths are pixels of the image.
void drawShadow(QImage& image, const QRect& shape, double cornerRadius, double radius, double opacity) {
  {
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor::fromRgbF(0, 0, 0, static_cast<float>(opacity)));
    const double grown = shadowGrowth * radius;
    painter.drawRoundedRect(QRectF(shape).adjusted(-grown, -grown, grown, grown), cornerRadius + grown,
                            cornerRadius + grown);
  }
  const int boxReach = boxWidth(radius) / 2;
  // Of each channel. The library goes round in the rows: a box's height and one more are enough.
  const int sumsOfRow = image.width() * 4;
  std::vector<std::int32_t> sums(static_cast<std::size_t>(sumsOfRow) *
                                 static_cast<std::size_t>(2 * boxReach + 2));
  QImage blurred(image.size(), image.format());
  for (int pass = 0; pass < 3; ++pass) {
    libyuv::ARGBBlur(image.constBits(), static_cast<int>(image.bytesPerLine()), blurred.bits(),
                     static_cast<int>(blurred.bytesPerLine()), sums.data(), sumsOfRow, image.width(),
                     image.height(), boxReach);
    image.swap(blurred);
  }
}

}  // namespace

ScenePainter::ScenePainter(const OverlayScene& scene, int width, int height, double scale) {
  if (width <= 0 || height <= 0) return;
  const double alpha = layerAlpha(scene.stripes);
  const double veil = unit(scene.veilAlpha);
  diagonal_.resize(static_cast<std::size_t>(width + height - 1), pixel(0, 0, veil));
  if (alpha <= 0) return;
  const double period = scene.stripes->period * scale;
  const StripeCoverage coverage(width, height, period > leastPeriod ? period : leastPeriod);
  for (std::size_t sum = 0; sum < diagonal_.size(); ++sum) {
    diagonal_[sum] = pixel(scene.stripes->rgb, alpha * coverage.at(static_cast<int>(sum)), veil);
  }
}

bool ScenePainter::covers(const OverlayScene& scene) {
  return layerAlpha(scene.stripes) > 0 || unit(scene.veilAlpha) > 0;
}

std::span<const std::uint32_t> ScenePainter::row(int y, int columns) const {
  return std::span(diagonal_).subspan(static_cast<std::size_t>(y), static_cast<std::size_t>(columns));
}

void ScenePainter::paint(int columns, int rows, std::span<std::uint32_t> out) const {
  auto to = out.begin();
  for (int y = 0; y < rows; ++y) to = std::ranges::copy(row(y, columns), to).out;
}

std::uint32_t premultipliedTint(TintLevel level) {
  const QColor& color = fixed_colors::alertTint;
  return qPremultiply(qRgba(color.red(), color.green(), color.blue(), std::clamp(level, 0, 255)));
}

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

Notice paintHint(const Rect& area, double scale, const std::string& keys) {
  using namespace hint;
  const QFont font = monoFont(11, QFont::Medium);
  const QFontMetricsF metrics(font);
  const QString shortcut = QString::fromStdString(keys);
  const double textWidth = keys.empty() ? 0 : spacing + metrics.horizontalAdvance(shortcut);
  const double rowHeight = std::max(eyeBox, keys.empty() ? 0 : metrics.height());
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
  return {image, QPoint(area.x + area.width - image.width(), area.y)};
}

}  // namespace sentrel
