// SPDX-License-Identifier: Apache-2.0
#include "views/controls/symbol_view.h"

#include <QPainter>
#include <algorithm>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

SymbolView::SymbolView(const QString& symbol, int pixels, QColor AppColors::*color, QWidget* parent)
    : QWidget(parent), symbol_(symbol), pixels_(pixels), color_(color) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  connect(&Theme::shared(), &Theme::changed, this, [this] {
    updateGeometry();
    update();
  });
}

QSize SymbolView::sizeHint() const {
  const int size = Theme::shared().iconSize(std::max(pixels_, disc_));
  return {size, size};
}

void SymbolView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  if (disc_ > 0) {
    const bool high = Theme::shared().highContrast();
    paintBox(painter, QRectF(rect()), width() / 2.0, colors().tonal, high ? colors().border : QColor());
  }
  const double size = Theme::shared().iconSize(pixels_);
  paintSymbol(painter, symbol_, QRectF((width() - size) / 2, (height() - size) / 2, size, size),
              colors().*color_);
}

}  // namespace sentrel
