// SPDX-License-Identifier: Apache-2.0
#include "views/controls/menu_bar_button.h"

#include <QPainter>

#include "look/icons.h"
#include "views/controls/painting.h"
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
    : DrawnButton(TextRole::body, label, parent), icon(symbol) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize MenuBarButton::sizeHint() const {
  const QFontMetrics metrics(font());
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
  const double ground = isDown() ? 0.12 : 0.06 * hover();
  if (ground > 0) paintBox(painter, row, radius, withAlpha(c.primary, ground));
  const int frame = Theme::shared().iconSize(iconFrame);
  const int size = Theme::shared().iconSize(iconPixels);
  const QRectF symbol(row.left() + inside + (frame - size) / 2.0, (height() - size) / 2.0, size, size);
  paintSymbol(painter, icon, symbol, c.textSecondary);
  painter.setFont(font());
  painter.setPen(c.text);
  painter.drawText(row.adjusted(inside + frame + spacing, 0, -inside, 0),
                   Qt::AlignVCenter | Qt::TextSingleLine, text());
}

}  // namespace sentrel
