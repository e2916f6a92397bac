// SPDX-License-Identifier: Apache-2.0
#include "views/controls/stat_card.h"

#include <QPainter>

#include "look/icons.h"
#include "views/controls/accessible_role.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr double radius = 12;
constexpr int padding = 14;
constexpr int symbolPixels = 18;
constexpr int smallestNumber = 16;
}  // namespace

StatCard::StatCard(const QString& symbol, const QString& labelText, Highlight emphasis, QWidget* parent)
    : QWidget(parent), symbol_(symbol), label(labelText), highlight(emphasis == Highlight::yes) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  setAccessibleRole(*this, QAccessible::StaticText);
  connect(&Theme::shared(), &Theme::changed, this, [this] {
    updateGeometry();
    update();
  });
}

void StatCard::setValue(const QString& words) {
  value = words;
  describe();
  update();
}

void StatCard::describe() {
  // One thing to read for assistive technology: "Alertes : 12".
  setAccessibleName(label + QStringLiteral("\u00A0: ") + value);
}

QSize StatCard::sizeHint() const {
  const int lines = highlight ? 40 + 18 : 30 + 18;
  return {2 * padding, (highlight ? 112 : 96) + qRound(lines * (Theme::shared().textScale() - 1))};
}

void StatCard::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  const Theme& theme = Theme::shared();
  const bool edged = highlight || theme.highContrast();
  QPainter painter(this);
  paintBox(painter, QRectF(rect()), radius, highlight ? c.tonal : c.surfaceAlt,
           edged ? (highlight ? c.primary : c.border) : QColor());
  const double symbol = theme.iconSize(symbolPixels);
  paintSymbol(painter, symbol_, QRectF(padding, padding, symbol, symbol),
              highlight ? c.primary : c.textSecondary);

  const double room = width() - 2 * padding;
  QFont number = theme.font(highlight ? TextRole::numberLarge : TextRole::numberMedium);
  while (number.pixelSize() > smallestNumber && QFontMetricsF(number).horizontalAdvance(value) > room) {
    number.setPixelSize(number.pixelSize() - 1);
  }
  const double labelHeight = 18 * theme.textScale();
  const double numberHeight = (highlight ? 40 : 30) * theme.textScale();
  const double labelTop = height() - 11 - labelHeight;
  painter.setFont(number);
  painter.setPen(highlight ? c.primary : c.text);
  painter.drawText(QRectF(padding, labelTop - numberHeight, room, numberHeight),
                   Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                   QFontMetricsF(number).elidedText(value, Qt::ElideRight, room));
  painter.setFont(theme.font(TextRole::subheadline));
  painter.setPen(c.textSecondary);
  painter.drawText(QRectF(padding, labelTop, room, labelHeight),
                   Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                   QFontMetricsF(painter.font()).elidedText(label, Qt::ElideRight, room));
}

}  // namespace sentrel
