// SPDX-License-Identifier: Apache-2.0
#include "views/controls/section_header.h"

#include <QHBoxLayout>
#include <QPainter>

#include "look/icons.h"
#include "views/controls/text_label.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int headerHeight = 24;
constexpr int symbolPixels = 18;
constexpr int symbolLeft = 4;
constexpr int gap = 8;
}  // namespace

SectionHeader::SectionHeader(const QString& symbol, const QString& title, QWidget* parent)
    : QWidget(parent), icon(symbol) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  auto* line = new QHBoxLayout(this);
  auto* words = new TextLabel(TextRole::headline, &AppColors::text, this);
  words->setWords(title);
  words->setAlignment(Qt::AlignVCenter);
  line->addWidget(words);
  const auto restyle = [this, line] {
    line->setContentsMargins(symbolLeft + Theme::shared().iconSize(symbolPixels) + gap, 0, 0, 0);
    updateGeometry();
    update();
  };
  connect(&Theme::shared(), &Theme::changed, this, restyle);
  restyle();
}

QSize SectionHeader::sizeHint() const {
  return {0, qRound(headerHeight - 20 + 20 * Theme::shared().textScale())};
}

void SectionHeader::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const double size = Theme::shared().iconSize(symbolPixels);
  paintSymbol(painter, icon, QRectF(symbolLeft, (height() - size) / 2, size, size), colors().primary);
}

}  // namespace sentrel
