// SPDX-License-Identifier: Apache-2.0
#include "views/controls/link_button.h"

#include <QPainter>
#include <cmath>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int symbolPixels = 12;
constexpr int symbolGap = 7;
constexpr double wide = 6;  // around the separator
const QString separator = QStringLiteral("·");
}  // namespace

LinkButton::LinkButton(const QString& words, QWidget* parent) : DrawnButton(TextRole::caption, {}, parent) {
  const auto cut = words.indexOf(separator);
  before_ = words.left(cut).trimmed();
  link_ = words.mid(cut + 1).trimmed();
  setText(link_);
  setCursor(Qt::PointingHandCursor);
}

QSize LinkButton::sizeHint() const {
  const QFontMetricsF metrics(font());
  const double words = metrics.horizontalAdvance(before_) + metrics.horizontalAdvance(separator) + 2 * wide +
                       metrics.horizontalAdvance(link_);
  return {static_cast<int>(std::ceil(words)) + symbolGap + Theme::shared().iconSize(symbolPixels) + 2,
          qRound(16 * Theme::shared().textScale()) + 4};
}

FocusShape::Outline LinkButton::focusOutline() const {
  const QFontMetricsF metrics(font());
  const double left = metrics.horizontalAdvance(before_) + metrics.horizontalAdvance(separator) + 2 * wide;
  return {.rect = QRectF(rect()).adjusted(left, 0, 0, 0), .radius = 4};
}

void LinkButton::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  const QFontMetricsF metrics(font());
  QPainter painter(this);
  painter.setFont(font());
  const double baseline = (height() - metrics.height()) / 2 + metrics.ascent();
  double x = 0;
  painter.setPen(c.textSecondary);
  painter.drawText(QPointF(x, baseline), before_);
  x += metrics.horizontalAdvance(before_) + wide;
  painter.drawText(QPointF(x, baseline), separator);
  x += metrics.horizontalAdvance(separator) + wide;
  const QColor link = mix(c.primary, c.primaryHover, hover());
  painter.setPen(link);
  painter.drawText(QPointF(x, baseline), link_);
  const double width = metrics.horizontalAdvance(link_);
  painter.fillRect(QRectF(x, std::round(baseline + 2), width, 1), link);
  const double size = Theme::shared().iconSize(symbolPixels);
  paintSymbol(painter, QStringLiteral("arrow.up.right.square"),
              QRectF(x + width + symbolGap, (height() - size) / 2, size, size), link);
}

}  // namespace sentrel
