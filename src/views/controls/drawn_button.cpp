// SPDX-License-Identifier: Apache-2.0
#include "views/controls/drawn_button.h"

#include <QKeyEvent>

#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int hoverMs = 100;
}  // namespace

bool pressByEnter(QAbstractButton& button, const QKeyEvent& event) {
  if (event.key() != Qt::Key_Return && event.key() != Qt::Key_Enter) return false;
  if (!event.isAutoRepeat()) button.click();
  return true;
}

DrawnButton::DrawnButton(TextRole role, const QString& words, QWidget* parent)
    : QPushButton(words, parent), isHovered(*this, hoverMs, QEasingCurve::Linear) {
  setFlat(true);
  setAutoDefault(false);
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  const auto restyle = [this, role] {
    setFont(Theme::shared().font(role));
    updateGeometry();
    update();
  };
  connect(&Theme::shared(), &Theme::changed, this, restyle);
  restyle();
}

void DrawnButton::enterEvent(QEnterEvent* event) {
  isHovered.glideTo(1);
  QPushButton::enterEvent(event);
}

void DrawnButton::leaveEvent(QEvent* event) {
  isHovered.glideTo(0);
  QPushButton::leaveEvent(event);
}

void DrawnButton::mousePressEvent(QMouseEvent* event) {
  pressed_ = true;
  QPushButton::mousePressEvent(event);
}

/// The second half of a double click whose first went to the button that stood here before is not meant for
/// this one.
void DrawnButton::mouseDoubleClickEvent(QMouseEvent* event) {
  if (pressed_) QPushButton::mouseDoubleClickEvent(event);
}

void DrawnButton::keyPressEvent(QKeyEvent* event) {
  if (!pressByEnter(*this, *event)) QPushButton::keyPressEvent(event);
}

}  // namespace sentrel
