// SPDX-License-Identifier: Apache-2.0
#include "views/controls/round_button.h"

#include <QKeyEvent>
#include <QPainter>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/controls/push_button.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int buttonPixels = 36;
constexpr int symbolPixels = 24;
}  // namespace

RoundButton::RoundButton(const QString& symbol, const QString& name, QWidget* parent)
    : QPushButton(parent), symbol_(symbol) {
  setAccessibleName(name);
  setAttribute(Qt::WA_Hover);
  setAutoDefault(false);
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  connect(&Theme::shared(), &Theme::changed, this, [this] { update(); });
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
  if (isDown() || (isEnabled() && underMouse())) {
    paintBox(painter, QRectF(rect()), width() / 2.0, withAlpha(c.primary, isDown() ? 0.14 : 0.08));
  }
  const double size = Theme::shared().iconSize(symbolPixels);
  paintSymbol(painter, symbol_, QRectF((width() - size) / 2, (height() - size) / 2, size, size), c.primary);
}

void RoundButton::keyPressEvent(QKeyEvent* event) {
  if (!pressByEnter(*this, *event)) QPushButton::keyPressEvent(event);
}

}  // namespace sentrel
