// SPDX-License-Identifier: Apache-2.0
#include "views/controls/fixed_window.h"

#include <QKeyEvent>
#include <QPainter>
#include <QScreen>

#include "views/controls/accessible_role.h"
#include "views/controls/focus_ring.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr double mostOfWorkArea = 0.9;
}  // namespace

FixedWindow::FixedWindow(const QString& title, QSize size, double addedForText)
    : size_(size), addedForText_(addedForText) {
  setWindowTitle(title);
  setAccessibleRole(*this, QAccessible::Window);
  new FocusRing(*this);  // it is the window's
  connect(&Theme::shared(), &Theme::changed, this, [this] { resizeToText(); });
  resizeToText();
}

void FixedWindow::resizeToText() {
  QSize size = size_ * (1 + addedForText_ * (Theme::shared().textScale() - 1));
  if (const QScreen* shown = screen()) size = size.boundedTo(shown->availableSize() * mostOfWorkArea);
  setFixedSize(size);
  update();
}

void FixedWindow::present() {
  if (!isVisible()) {
    const QScreen* where = screen();
    if (where != nullptr) move(where->availableGeometry().center() - rect().center());
    show();
  }
  setWindowState(windowState() & ~Qt::WindowMinimized);
  raise();
  activateWindow();
}

void FixedWindow::keyPressEvent(QKeyEvent* event) {
  if (event->matches(QKeySequence::Close)) {
    close();
  } else {
    QWidget::keyPressEvent(event);
  }
}

void FixedWindow::paintEvent(QPaintEvent* /*event*/) {
  QPainter(this).fillRect(rect(), colors().window);
}

}  // namespace sentrel
