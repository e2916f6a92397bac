// SPDX-License-Identifier: Apache-2.0
#include "views/controls/menu_bar_button.h"

#include <QKeyEvent>
#include <QPainter>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/controls/push_button.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int outside = 4;  // left and right of the row
constexpr int inside = 16;  // between the row's edge and the symbol's frame
constexpr int iconFrame = 20;
constexpr int iconPixels = 17;
constexpr int spacing = 8;
constexpr double radius = 6;
}  // namespace

MenuBarButton::MenuBarButton(const QString& symbol, const QString& label, QWidget* parent)
    : QPushButton(label, parent), icon(symbol) {
  setFlat(true);
  setAutoDefault(false);
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  connect(&Theme::shared(), &Theme::changed, this, [this] {
    updateGeometry();
    update();
  });
}

QSize MenuBarButton::sizeHint() const {
  const QFontMetrics metrics(Theme::shared().font(TextRole::body));
  const int width = 2 * (outside + inside) + Theme::shared().iconSize(iconFrame) + spacing +
                    metrics.horizontalAdvance(text());
  return {width, qRound(16 + 20 * Theme::shared().textScale())};
}

FocusShape::Outline MenuBarButton::focusOutline() const {
  return {.rect = QRectF(rect()).adjusted(outside, 0, -outside, 0), .radius = radius, .gap = -2};
}

void MenuBarButton::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  QPainter painter(this);
  const QRectF row = QRectF(rect()).adjusted(outside, 0, -outside, 0);
  if (isHovered || isDown()) paintBox(painter, row, radius, withAlpha(c.primary, isDown() ? 0.12 : 0.06));
  const int frame = Theme::shared().iconSize(iconFrame);
  const int size = Theme::shared().iconSize(iconPixels);
  const QRectF symbol(row.left() + inside + (frame - size) / 2.0, (height() - size) / 2.0, size, size);
  paintSymbol(painter, icon, symbol, c.textSecondary);
  painter.setFont(Theme::shared().font(TextRole::body));
  painter.setPen(c.text);
  painter.drawText(row.adjusted(inside + frame + spacing, 0, -inside, 0),
                   Qt::AlignVCenter | Qt::TextSingleLine, text());
}

void MenuBarButton::enterEvent(QEnterEvent* event) {
  isHovered = true;
  update();
  QPushButton::enterEvent(event);
}

void MenuBarButton::leaveEvent(QEvent* event) {
  isHovered = false;
  update();
  QPushButton::leaveEvent(event);
}

void MenuBarButton::keyPressEvent(QKeyEvent* event) {
  if (!pressByEnter(*this, *event)) QPushButton::keyPressEvent(event);
}

}  // namespace sentrel
