// SPDX-License-Identifier: Apache-2.0
#include "views/controls/layout.h"

#include <QMouseEvent>
#include <QPainter>

#include "look/icons.h"
#include "views/controls/buttons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

// Dividers and Card.

QWidget* divider() {
  auto* line =
      new Canvas([](QPainter& painter, const QRectF& rect) { painter.fillRect(rect, colors().border); });
  line->setFixedHeight(1);
  line->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  return line;
}

QLayout* insetDivider(int left, int right) {
  auto* line = boxIn<QHBoxLayout>(nullptr, {left, 0, right, 0});
  line->addWidget(divider());
  return line;
}

void Card::addRow(QWidget* row) {
  if (rows_->count() > 0) rows_->addLayout(insetDivider(16, 0));
  rows_->addWidget(row);
}

void Card::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintBox(painter, QRectF(rect()), 12, colors().surface, colors().border);
}

// SectionHeader.

namespace {
constexpr int headerHeight = 24;
constexpr int symbolPixels = 18;
constexpr int symbolLeft = 4;
constexpr int symbolGap = 8;
}  // namespace

SectionHeader::SectionHeader(const QString& symbol, const QString& title) : icon(symbol) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  auto* line = new QHBoxLayout(this);
  auto* words = new TextLabel(TextRole::headline, title);
  words->setAlignment(Qt::AlignVCenter);
  line->addWidget(words);
  const auto arrange = [line] {
    line->setContentsMargins(symbolLeft + Theme::shared().iconSize(symbolPixels) + symbolGap, 0, 0, 0);
  };
  connect(&Theme::shared(), &Theme::changed, this, arrange);
  arrange();
}

QSize SectionHeader::sizeHint() const {
  return {0, Theme::shared().grown(headerHeight)};
}

void SectionHeader::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const double size = Theme::shared().iconSize(symbolPixels);
  paintSymbol(painter, icon, QRectF(symbolLeft, (height() - size) / 2, size, size), colors().primary);
}

// PrefRow.

namespace {
constexpr int side = 15;  // with the card's edge 16
constexpr int above = 14;
constexpr int besideGap = 20;
constexpr int labelToHint = 2;
constexpr int leastForWords = 180;
}  // namespace

PrefRow::PrefRow(const QString& label, const QString& hint, QWidget* rowControl)
    : row_(new QBoxLayout(QBoxLayout::LeftToRight, this)),
      hint_(new TextLabel(TextRole::subheadline, {}, &AppColors::textSecondary)),
      control(rowControl) {
  row_->setContentsMargins(side, above, side, above);
  row_->setSpacing(besideGap);
  auto* words = boxIn<QVBoxLayout>(nullptr, {}, labelToHint);
  words->addStretch();
  if (!label.isEmpty()) words->addWidget(new TextLabel(TextRole::bodyLabel, label));
  words->addWidget(hint_);
  words->addStretch();
  row_->addLayout(words, 1);
  row_->addWidget(control, 0, Qt::AlignVCenter);
  setHint(hint);
  connect(&Theme::shared(), &Theme::changed, this, [this] { arrange(); });
}

void PrefRow::setHint(const QString& hint) {
  hint_->setWords(hint);
  QWidget* const used = control->focusProxy();
  (used != nullptr ? used : control)->setAccessibleDescription(hint);
}

void PrefRow::arrange() {
  const int available = width() - 2 * side - besideGap - control->sizeHint().width();
  const bool beside = available >= leastForWords * Theme::shared().textScale();
  row_->setDirection(beside ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
  row_->setSpacing(beside ? besideGap : besideGap / 2);
  row_->setAlignment(control, beside ? Qt::AlignVCenter : Qt::AlignLeft);
}

void PrefRow::resizeEvent(QResizeEvent* event) {
  arrange();
  QWidget::resizeEvent(event);
}

void PrefRow::mousePressEvent(QMouseEvent* event) {
  pressed_ = event->button() == Qt::LeftButton;
}

void PrefRow::mouseReleaseEvent(QMouseEvent* event) {
  auto* toggle = dynamic_cast<ToggleSwitch*>(control);
  if (pressed_ && toggle != nullptr && rect().contains(event->position().toPoint())) toggle->click();
  pressed_ = false;
}

}  // namespace sentrel
