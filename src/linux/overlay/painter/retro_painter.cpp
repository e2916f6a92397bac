// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/painter/retro_painter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

#include "look/fonts.h"
#include "look/palette.h"

namespace sentrel {

namespace {

// Logical pixels.
constexpr int logicalWidth = 256;
constexpr int logicalHeight = 192;
constexpr int rightGap = 20;
constexpr int bottomGap = 80;
constexpr double linePeriod = 3;
constexpr double lineHeight = 1.5;
constexpr double lineOpacity = 0.38;
constexpr double bracketInset = 2;
constexpr double bracketReach = 16;
constexpr double bracketWidth = 2;
constexpr double headerSide = 8;
constexpr double headerTop = 6;
constexpr double headerSpacing = 6;
constexpr double dotSize = 5;
constexpr double tagPadding = 5;
constexpr double tagOpacity = 0.4;
constexpr double borderWidth = 1.5;
constexpr double borderRadius = 6;
constexpr double borderOpacity = 0.75;

constexpr std::uint32_t opaqueBlack = 0xFF000000;
constexpr unsigned full = 256;

constexpr std::size_t index(int value) {
  return static_cast<std::size_t>(value);
}

QColor green(double opacity) {
  QColor color = fixed_colors::retroGreen;
  color.setAlphaF(static_cast<float>(opacity));
  return color;
}

/// How much of the rows above `y` lies under scan lines.
double coveredAbove(double y) {
  const double whole = std::floor(y / linePeriod);
  return whole * lineHeight + std::min(y - whole * linePeriod, lineHeight);
}

void drawBrackets(QPainter& painter) {
  painter.setPen(QPen(green(1), bracketWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
  painter.setBrush(Qt::NoBrush);
  for (const bool right : {false, true}) {
    for (const bool bottom : {false, true}) {
      const auto at = [&](double x, double y) {
        return QPointF(right ? logicalWidth - x : x, bottom ? logicalHeight - y : y);
      };
      QPainterPath corner(at(bracketInset, bracketReach));
      corner.lineTo(at(bracketInset, bracketInset));
      corner.lineTo(at(bracketReach, bracketInset));
      painter.drawPath(corner);
    }
  }
}

void drawTag(QPainter& painter) {
  const QFont font = monoFont(8);
  const QFontMetricsF metrics(font);
  const QString tag = QStringLiteral("SENTREL");
  painter.setFont(font);
  painter.setPen(green(tagOpacity));
  painter.drawText(QPointF(logicalWidth - tagPadding - metrics.horizontalAdvance(tag),
                           logicalHeight - tagPadding - metrics.descent()),
                   tag);
}

void drawBorder(QPainter& painter) {
  painter.setPen(QPen(green(borderOpacity), borderWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
  painter.setBrush(Qt::NoBrush);
  constexpr double inset = borderWidth / 2;
  painter.drawRoundedRect(QRectF(inset, inset, logicalWidth - borderWidth, logicalHeight - borderWidth),
                          borderRadius - inset, borderRadius - inset);
}

}  // namespace

Rect placeRetro(const Rect& screen, double scale) {
  const auto device = [scale](int logical) { return static_cast<int>(std::lround(logical * scale)); };
  return {screen.x + screen.width - device(logicalWidth) - device(rightGap),
          screen.y + screen.height - device(logicalHeight) - device(bottomGap), device(logicalWidth),
          device(logicalHeight)};
}

void GreyScaler::measure(Axis& axis, int from, int to) {
  const double step = static_cast<double>(from) / to;
  const double reach = std::max(step, 1.0);
  axis.count = std::min(static_cast<int>(std::ceil(2 * reach)) + 1, from);
  axis.first.resize(index(to));
  axis.weights.resize(index(to) * index(axis.count));
  for (int i = 0; i < to; ++i) {
    const double centre = (i + 0.5) * step - 0.5;
    const int first = std::clamp(static_cast<int>(std::ceil(centre - reach)), 0, from - axis.count);
    axis.first[index(i)] = first;
    const auto weight = [&](int k) { return std::max(0.0, 1 - std::abs(first + k - centre) / reach); };
    double total = 0;
    for (int k = 0; k < axis.count; ++k) total += weight(k);
    // Rounded so that the sum stays exactly one: a white picture remains white.
    double before = 0;
    long spent = 0;
    for (int k = 0; k < axis.count; ++k) {
      before += weight(k);
      const long reached = std::lround(full * before / total);
      axis.weights[index(i) * index(axis.count) + index(k)] = static_cast<std::uint16_t>(reached - spent);
      spent = reached;
    }
  }
}

const FrameMemory<std::uint8_t>& GreyScaler::scale(const GreyPicture& picture, int width, int height) {
  measure(columns_, picture.width, width);
  measure(rows_, picture.height, height);

  narrowed_.resize(index(width) * index(picture.height));
  for (int y = 0; y < picture.height; ++y) {
    const std::uint8_t* from = picture.levels.data() + index(y) * index(picture.width);
    std::uint8_t* to = narrowed_.data() + index(y) * index(width);
    const std::uint16_t* weight = columns_.weights.data();
    for (int x = 0; x < width; ++x) {
      const std::uint8_t* pixel = from + columns_.first[index(x)];
      std::uint32_t sum = full / 2;
      for (int k = 0; k < columns_.count; ++k) sum += std::uint32_t{*weight++} * pixel[k];
      to[x] = static_cast<std::uint8_t>(sum / full);
    }
  }

  result_.resize(index(width) * index(height));
  sums_.resize(index(width));
  for (int y = 0; y < height; ++y) {
    std::ranges::fill(sums_, std::uint32_t{full / 2});
    for (int k = 0; k < rows_.count; ++k) {
      const std::uint32_t weight = rows_.weights[index(y) * index(rows_.count) + index(k)];
      const std::uint8_t* from = narrowed_.data() + index(rows_.first[index(y)] + k) * index(width);
      for (std::size_t x = 0; x < sums_.size(); ++x) sums_[x] += weight * from[x];
    }
    std::uint8_t* to = result_.data() + index(y) * index(width);
    for (std::size_t x = 0; x < sums_.size(); ++x) to[x] = static_cast<std::uint8_t>(sums_[x] / full);
  }
  return result_;
}

RetroPainter::RetroPainter(double scale)
    : scale_(scale),
      decorations_(std::max(1, qRound(logicalWidth * scale)), std::max(1, qRound(logicalHeight * scale)),
                   QImage::Format_ARGB32_Premultiplied) {
  const QColor& color = fixed_colors::retroGreen;
  for (unsigned level = 0; level < green_.size(); ++level) {
    const auto scaled = [level](int channel) {
      return static_cast<int>((level * static_cast<unsigned>(channel) + 127) / 255);
    };
    green_[level] = qRgb(scaled(color.red()), scaled(color.green()), scaled(color.blue()));
  }
  for (int y = 0; y < height(); ++y) {
    const double covered = (coveredAbove((y + 1) / scale) - coveredAbove(y / scale)) * scale;
    lineLight_.push_back(static_cast<std::uint32_t>(std::lround(full * (1 - lineOpacity * covered))));
  }
  drawDecorations();
}

void RetroPainter::drawDecorations() {
  decorations_.fill(Qt::transparent);
  QPainter painter(&decorations_);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(scale_, scale_);
  drawBrackets(painter);

  const QFont font = monoFont(9, QFont::Bold);
  const QFontMetricsF metrics(font);
  const double rowHeight = std::max(std::ceil(metrics.height()), dotSize);
  painter.setFont(font);
  painter.setPen(green(1));
  painter.drawText(QPointF(headerSide + dotSize + headerSpacing,
                           headerTop + (rowHeight - metrics.height()) / 2 + metrics.ascent()),
                   qtTrId("INTRUS DÉTECTÉ"));
  const QRectF circle(headerSide * scale_, (headerTop + (rowHeight - dotSize) / 2) * scale_, dotSize * scale_,
                      dotSize * scale_);
  dotPlace_ = circle.toAlignedRect();
  dotCircle_ = circle.translated(-dotPlace_.topLeft());

  drawTag(painter);
  drawBorder(painter);
}

void RetroPainter::paint(const GreyPicture* picture, std::span<std::uint32_t> out) {
  std::ranges::fill(out, opaqueBlack);
  if (picture != nullptr && picture->width > 0 && picture->height > 0) paintPicture(*picture, out);
  QImage image(reinterpret_cast<uchar*>(out.data()), width(), height(), QImage::Format_RGB32);
  QPainter(&image).drawImage(0, 0, decorations_);
}

void RetroPainter::paintPicture(const GreyPicture& picture, std::span<std::uint32_t> out) {
  const double fit =
      std::min(static_cast<double>(width()) / picture.width, static_cast<double>(height()) / picture.height);
  const int columns = std::clamp(qRound(picture.width * fit), 1, width());
  const int rows = std::clamp(qRound(picture.height * fit), 1, height());
  const int left = (width() - columns) / 2;
  const int top = (height() - rows) / 2;
  const std::uint8_t* from = scaler_.scale(picture, columns, rows).data();
  for (int y = top; y < top + rows; ++y) {
    const std::uint32_t light = lineLight_[index(y)];
    auto to = out.begin() + static_cast<std::ptrdiff_t>(y) * width() + left;
    for (int x = 0; x < columns; ++x) *to++ = green_[*from++ * light / full];
  }
}

QImage RetroPainter::dot(BlinkLevel level) const {
  QImage image(dotPlace_.size(), QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(green(std::clamp(level, 0, brightestBlink) / static_cast<double>(brightestBlink)));
  painter.drawEllipse(dotCircle_);
  return image;
}

}  // namespace sentrel
