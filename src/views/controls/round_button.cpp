// SPDX-License-Identifier: Apache-2.0
#include "views/controls/round_button.h"

#include <QPainter>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int buttonPixels = 36;
constexpr int symbolPixels = 24;
}  // namespace

RoundButton::RoundButton(const QString& symbol, const QString& name, QWidget* parent)
    : DrawnButton(TextRole::body, {}, parent), symbol_(symbol) {
  setAccessibleName(name);
}

QSize RoundButton::sizeHint() const {
  const int size = Theme::shared().iconSize(buttonPixels);
  return {size, size};
}

FocusShape::Outline RoundButton::focusOutline() const {
  return {.rect = QRectF(rect()), .radius = width() / 2.0, .gap = 0};
}

void RoundButton::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  const double ground = isDown() ? 0.14 : 0.08 * hover();
  if (ground > 0) paintBox(painter, QRectF(rect()), width() / 2.0, withAlpha(c.primary, ground));
  const double size = Theme::shared().iconSize(symbolPixels);
  paintSymbol(painter, symbol_, QRectF((width() - size) / 2, (height() - size) / 2, size, size), c.primary);
}

}  // namespace sentrel
