// SPDX-License-Identifier: Apache-2.0
#include "views/controls/push_button.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr double radius = 8;
}  // namespace

PushButton::PushButton(Kind kind, const QString& words, QWidget* parent)
    : DrawnButton(TextRole::bodyButton, words, parent), kind_(kind) {}

void PushButton::setButtonHeight(int pixels) {
  height_ = pixels;
  updateGeometry();
}

void PushButton::setSymbol(const QString& symbol) {
  symbol_ = symbol;
  updateGeometry();
}

int PushButton::padding() const {
  return kind_ == Kind::plain ? 10 : 18;
}

int PushButton::symbolWidth() const {
  return symbol_.isEmpty() ? 0 : Theme::shared().iconSize(14) + 6;
}

QSize PushButton::sizeHint() const {
  const QFontMetricsF metrics(font());
  const int width =
      static_cast<int>(std::ceil(metrics.horizontalAdvance(text()))) + 2 * padding() + symbolWidth();
  const int grown = static_cast<int>(std::lround(height_ - 20 + 20 * Theme::shared().textScale()));
  return {width, grown};
}

FocusShape::Outline PushButton::focusOutline() const {
  return {.rect = QRectF(rect()), .radius = radius};
}

void PushButton::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  const bool high = Theme::shared().highContrast();
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  QColor words = c.text;
  const QRectF box(rect());
  switch (kind_) {
    case Kind::primary:
      words = c.onPrimary;
      paintBox(painter, box, radius, isDown() ? c.primaryPressed : mix(c.primary, c.primaryHover, hover()));
      break;
    case Kind::secondary:
      paintBox(painter, box, radius, isDown() && !high ? c.border : mix(c.surface, c.surfaceAlt, hover()),
               c.controlBorder, isDown() && high ? 3 : 1);
      break;
    case Kind::plain:
      words = c.primary;
      if (isDown() || hover() > 0)
        paintBox(painter, box, radius, withAlpha(c.primary, isDown() ? 0.14 : 0.08 * hover()));
      break;
    case Kind::destructive:
      words = c.onError;
      paintBox(painter, box, radius,
               isDown() ? mix(c.errorFill, Qt::black, 0.15) : mix(c.errorFill, Qt::black, 0.07 * hover()));
      break;
  }
  painter.setPen(words);
  painter.setFont(font());
  const int before = symbolWidth();
  if (before > 0) {
    const int size = Theme::shared().iconSize(14);
    paintSymbol(painter, symbol_, QRectF(padding() - 4, (height() - size) / 2.0, size, size), words);
  }
  const QRectF inner = box.adjusted(std::min(padding(), 8) + before, 0, -std::min(padding(), 8), 0);
  const QString shown = QFontMetricsF(font()).elidedText(text(), Qt::ElideRight, inner.width());
  painter.drawText(inner, Qt::AlignCenter | Qt::TextSingleLine, shown);
}

}  // namespace sentrel
