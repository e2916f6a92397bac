// SPDX-License-Identifier: Apache-2.0
#include "views/controls/divider.h"

#include <QHBoxLayout>
#include <QPainter>

#include "views/theme.h"

namespace sentrel {

Divider::Divider(QWidget* parent) : QWidget(parent) {
  setFixedHeight(1);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  connect(&Theme::shared(), &Theme::changed, this, [this] { update(); });
}

void Divider::paintEvent(QPaintEvent* /*event*/) {
  QPainter(this).fillRect(rect(), colors().border);
}

QLayout* insetDivider(int left, int right) {
  auto* line = new QHBoxLayout;
  line->setContentsMargins(left, 0, right, 0);
  line->addWidget(new Divider);
  return line;
}

}  // namespace sentrel
