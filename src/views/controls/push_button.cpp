// SPDX-License-Identifier: Apache-2.0
#include "views/controls/push_button.h"

#include <QKeyEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr double radius = 8;
constexpr int hoverMs = 100;
}  // namespace

bool pressByEnter(QAbstractButton& button, const QKeyEvent& event) {
  if (event.key() != Qt::Key_Return && event.key() != Qt::Key_Enter) return false;
  if (!event.isAutoRepeat()) button.click();
  return true;
}

PushButton::PushButton(Kind kind, const QString& words, QWidget* parent)
    : QPushButton(words, parent), kind_(kind), hover_(*this, hoverMs, QEasingCurve::Linear) {
  setAttribute(Qt::WA_Hover);
  setAutoDefault(false);
  setFocusPolicy(Qt::StrongFocus);
  setCursor(Qt::ArrowCursor);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  const auto restyle = [this] {
    setFont(Theme::shared().font(TextRole::bodyButton));
    updateGeometry();
    update();
  };
  connect(&Theme::shared(), &Theme::changed, this, restyle);
  restyle();
}

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
  const double hover = isEnabled() ? hover_.value() : 0;
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  QColor words = c.text;
  const QRectF box(rect());
  switch (kind_) {
    case Kind::primary:
      words = c.onPrimary;
      paintBox(painter, box, radius, isDown() ? c.primaryPressed : mix(c.primary, c.primaryHover, hover));
      break;
    case Kind::secondary:
      paintBox(painter, box, radius, isDown() && !high ? c.border : mix(c.surface, c.surfaceAlt, hover),
               c.controlBorder, isDown() && high ? 3 : 1);
      break;
    case Kind::plain:
      words = c.primary;
      if (isDown() || hover > 0)
        paintBox(painter, box, radius, withAlpha(c.primary, isDown() ? 0.14 : 0.08 * hover));
      break;
    case Kind::destructive:
      words = c.onError;
      paintBox(painter, box, radius,
               isDown() ? mix(c.errorFill, Qt::black, 0.15) : mix(c.errorFill, Qt::black, 0.07 * hover));
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

void PushButton::enterEvent(QEnterEvent* event) {
  hover_.glideTo(1);
  QPushButton::enterEvent(event);
}

void PushButton::leaveEvent(QEvent* event) {
  hover_.glideTo(0);
  QPushButton::leaveEvent(event);
}

void PushButton::keyPressEvent(QKeyEvent* event) {
  if (!pressByEnter(*this, *event)) QPushButton::keyPressEvent(event);
}

}  // namespace sentrel
