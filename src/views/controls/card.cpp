// SPDX-License-Identifier: Apache-2.0
#include "views/controls/card.h"

#include <QPainter>

#include "views/controls/divider.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr double radius = 12;
constexpr int hairlineInset = 16;
}  // namespace

Card::Card(QWidget* parent) : QWidget(parent), rows_(new QVBoxLayout(this)) {
  rows_->setContentsMargins(1, 1, 1, 1);
  rows_->setSpacing(0);
  connect(&Theme::shared(), &Theme::changed, this, [this] { update(); });
}

void Card::addRow(QWidget* row) {
  if (rows_->count() > 0) rows_->addLayout(insetDivider(hairlineInset, 0));
  rows_->addWidget(row);
}

void Card::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintBox(painter, QRectF(rect()), radius, colors().surface, colors().border);
}

}  // namespace sentrel
