// SPDX-License-Identifier: Apache-2.0
#include "views/controls/page_dots.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

#include "views/controls/accessible_role.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int dot = 7;
constexpr int gap = 9;
constexpr double otherOpacity = 0.3;
constexpr int changeMs = 200;
}  // namespace

PageDots::PageDots(int pages, QWidget* parent)
    : QWidget(parent), pages_(pages), page_(*this, changeMs, QEasingCurve::InOutCubic) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  connect(&Theme::shared(), &Theme::changed, this, [this] { update(); });
  setAccessibleRole(*this, QAccessible::StaticText);
  setPage(0);
}

void PageDots::setPage(int page) {
  page_.glideTo(page);
  setAccessibleName(qtTrId("Étape %1 sur %2").arg(page + 1).arg(pages_));
}

QSize PageDots::sizeHint() const {
  return {pages_ * dot + (pages_ - 1) * gap, dot};
}

void PageDots::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  for (int i = 0; i < pages_; ++i) {
    const double share = 1 - std::min(1.0, std::abs(page_.value() - i));
    const double opacity = otherOpacity + (1 - otherOpacity) * share;
    paintBox(painter, QRectF(i * (dot + gap), 0, dot, dot), dot / 2.0, withAlpha(colors().primary, opacity));
  }
}

}  // namespace sentrel
