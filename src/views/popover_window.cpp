// SPDX-License-Identifier: Apache-2.0
#include "views/popover_window.h"

#include <QCloseEvent>
#include <QGraphicsOpacityEffect>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QVariantAnimation>
#include <algorithm>
#include <utility>

#include "views/controls/accessible_role.h"
#include "views/controls/focus_ring.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int away = 8;
constexpr int openMs = 120;
constexpr int slide = 6;
}  // namespace

QRect placePopover(const QRect& anchor, const QRect& workArea, QSize size) {
  const QRect room = workArea.adjusted(away, away, -away, -away);
  QRect place(QPoint(anchor.right() + 1 - size.width(), anchor.bottom() + 1 + away), size);
  if (place.bottom() > room.bottom()) place.moveBottom(anchor.top() - 1 - away);
  // The corner that matters most, the top left one, is kept last.
  place.moveRight(std::min(place.right(), room.right()));
  place.moveBottom(std::min(place.bottom(), room.bottom()));
  place.moveLeft(std::max(place.left(), room.left()));
  place.moveTop(std::max(place.top(), room.top()));
  return place;
}

PopoverWindow::PopoverWindow(MenuBarPopoverView::Parts parts, Ground ground)
    : QWidget(nullptr,
              Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint),
      ground_(ground),
      content_(new MenuBarPopoverView(std::move(parts), this)) {
  setAttribute(Qt::WA_DeleteOnClose);
  setAttribute(Qt::WA_TranslucentBackground, ground == Ground::translucent);
  setWindowTitle(QStringLiteral("Sentrel"));
  setAccessibleRole(*this, QAccessible::Dialog);
  new FocusRing(*this);  // it is the window's
  content_->onSizeChanged = [this] { place(); };
  connect(&Theme::shared(), &Theme::changed, this, [this] { place(); });
  place();
}

int PopoverWindow::margin() const {
  return ground_ == Ground::translucent ? shadowReach : 0;
}

/// While it opens it comes from its anchor's side.
QPoint PopoverWindow::contentPlace() const {
  const int way = anchor_.top() < geometry().center().y() ? -slide : slide;
  return {margin(), margin() + qRound(way * (1 - presence_))};
}

void PopoverWindow::place() {
  const int around = margin();
  const QScreen* where = anchor_.isValid() ? QGuiApplication::screenAt(anchor_.center()) : nullptr;
  if (where == nullptr) where = screen();
  const QRect workArea = where->availableGeometry();
  // What does not fit scrolls.
  const QSize size = content_->sizeHint().boundedTo(workArea.size() - QSize(2 * away, 2 * away));
  content_->setGeometry(QRect(contentPlace(), size));
  const QSize whole = size + QSize(2 * around, 2 * around);
  if (anchor_.isValid()) {
    const QRect place = placePopover(anchor_, workArea, size);
    setGeometry(place.adjusted(-around, -around, around, around));
  } else {
    resize(whole);
  }
  setMinimumSize(whole);
  setMaximumSize(whole);
  update();
}

void PopoverWindow::openAt(const QRect& anchor) {
  anchor_ = anchor;
  place();
  show();
  raise();
  activateWindow();
  appear();
}

void PopoverWindow::appear() {
  const int milliseconds = Theme::shared().duration(openMs);
  if (milliseconds == 0 || ground_ == Ground::opaque) return;
  auto* veil = new QGraphicsOpacityEffect(content_);
  auto* opening = new QVariantAnimation(this);
  connect(opening, &QVariantAnimation::valueChanged, this, [this, veil](const QVariant& value) {
    presence_ = value.toDouble();
    veil->setOpacity(presence_);
    content_->move(contentPlace());
    update();
  });
  connect(opening, &QVariantAnimation::finished, content_, [this] { content_->setGraphicsEffect(nullptr); });
  content_->setGraphicsEffect(veil);
  opening->setStartValue(0.0);
  opening->setEndValue(1.0);
  opening->setDuration(milliseconds);
  opening->setEasingCurve(QEasingCurve::OutCubic);
  opening->start(QAbstractAnimation::DeleteWhenStopped);
}

bool PopoverWindow::event(QEvent* event) {
  if (event->type() == QEvent::WindowDeactivate && isVisible() && !content_->asks()) close();
  return QWidget::event(event);
}

void PopoverWindow::closeEvent(QCloseEvent* event) {
  QWidget::closeEvent(event);
  if (const auto call = std::exchange(onClosed, nullptr)) call();
}

void PopoverWindow::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) close();
}

void PopoverWindow::mousePressEvent(QMouseEvent* event) {
  // The shadow is not part of what the person sees as the window.
  if (!content_->geometry().contains(event->position().toPoint()) && !content_->asks()) close();
}

void PopoverWindow::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const QRectF box(content_->geometry());
  if (ground_ == Ground::opaque) {
    painter.fillRect(rect(), colors().surface);
    paintBox(painter, box, 0, {}, colors().border);
    return;
  }
  painter.setOpacity(presence_);
  paintShadow(painter, box, popoverRadius, 1);
  paintBox(painter, box, popoverRadius, colors().surface, colors().border);
}

}  // namespace sentrel
