// SPDX-License-Identifier: Apache-2.0
#include "views/controls/sheet.h"

#include <QApplication>
#include <QEvent>
#include <QKeyEvent>
#include <QLayout>
#include <QPainter>
#include <algorithm>
#include <utility>

#include "views/controls/accessible_role.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr double radius = 14;
constexpr double shadowStrength = 1.2;
constexpr int openMs = 180;
constexpr int leastMargin = 8;
constexpr double addedForText = 0.6;  // of the size, at 200 %
const QColor scrim(10, 11, 20);
}  // namespace

Sheet::Sheet(QWidget& window, QSize size)
    : QWidget(&window),
      size_(size),
      panel_(new QWidget(this)),
      presence_(*this, openMs, QEasingCurve::OutCubic) {
  setFocusPolicy(Qt::NoFocus);
  setAccessibleRole(*this, QAccessible::Dialog);
  setGeometry(window.rect());
  window.installEventFilter(this);
  panel_->installEventFilter(this);
  connect(&Theme::shared(), &Theme::changed, this, [this] {
    placePanel();
    update();
  });
  hide();
}

void Sheet::open(QWidget* focus) {
  before_ = QApplication::focusWidget();
  setGeometry(parentWidget()->rect());
  placePanel();
  show();
  raise();
  presence_.glideTo(1);
  focus->setFocus(Qt::PopupFocusReason);
}

void Sheet::dismiss() {
  if (std::exchange(dismissed_, true)) return;
  hide();
  if (before_) before_->setFocus(Qt::PopupFocusReason);
  if (onClosed) onClosed();
  deleteLater();
}

void Sheet::placePanel() {
  const QSize room = rect().marginsRemoved({leastMargin, leastMargin, leastMargin, leastMargin}).size();
  QSize size = (size_ * (1 + addedForText * (Theme::shared().textScale() - 1))).boundedTo(room);
  if (QLayout* content = panel_->layout(); content != nullptr) {
    const int wanted = content->hasHeightForWidth() ? content->totalHeightForWidth(size.width())
                                                    : content->totalSizeHint().height();
    size.setHeight(std::clamp(wanted, size.height(), room.height()));
  }
  panel_->setGeometry(QRect(QPoint((width() - size.width()) / 2, (height() - size.height()) / 2), size));
}

bool Sheet::eventFilter(QObject* watched, QEvent* event) {
  if (watched == parentWidget() && event->type() == QEvent::Resize) setGeometry(parentWidget()->rect());
  if (watched == panel_ && event->type() == QEvent::LayoutRequest) placePanel();
  return false;
}

void Sheet::resizeEvent(QResizeEvent* /*event*/) {
  placePanel();
}

void Sheet::mousePressEvent(QMouseEvent* /*event*/) {
  // What lies below cannot be reached.
}

void Sheet::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape && onEscape) {
    onEscape();
    return;
  }
  event->accept();
}

bool Sheet::focusNextPrevChild(bool next) {
  QWidget* const start = QApplication::focusWidget();
  QWidget* candidate = start != nullptr && isAncestorOf(start) ? start : panel_;
  const QWidget* const first = candidate;
  do {
    candidate = next ? candidate->nextInFocusChain() : candidate->previousInFocusChain();
    const bool takesTab = (candidate->focusPolicy() & Qt::TabFocus) == Qt::TabFocus;
    if (takesTab && panel_->isAncestorOf(candidate) && candidate->isVisible() && candidate->isEnabled()) {
      candidate->setFocus(next ? Qt::TabFocusReason : Qt::BacktabFocusReason);
      return true;
    }
  } while (candidate != first);
  return true;
}

void Sheet::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintBox(painter, QRectF(rect()), cornerRadius_,
           withAlpha(scrim, (Theme::shared().dark() ? 0.62 : 0.42) * presence_.value()));
  painter.setOpacity(presence_.value());
  const QRectF box(panel_->geometry());
  paintShadow(painter, box, radius, shadowStrength);
  paintBox(painter, box, radius, colors().surface, colors().border);
}

}  // namespace sentrel
