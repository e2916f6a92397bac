// SPDX-License-Identifier: Apache-2.0
#include "views/controls/toggle_switch.h"

#include <QKeyEvent>
#include <QPainter>

#include "views/controls/drawn_button.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr QSize trackSize(44, 26);
constexpr double knobSize = 20;
constexpr double knobInset = 3;
constexpr int slideMs = 140;
constexpr int hoverMs = 100;
constexpr double waitingOpacity = 0.6;
}  // namespace

ToggleSwitch::ToggleSwitch(const QString& name, Click click, QWidget* parent)
    : QCheckBox(parent),
      click_(click),
      knob_(*this, slideMs, QEasingCurve::OutCubic),
      hover_(*this, hoverMs, QEasingCurve::Linear) {
  setAccessibleName(name);
  setAttribute(Qt::WA_Hover);
  setFocusPolicy(Qt::StrongFocus);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  connect(this, &QCheckBox::toggled, this, [this](bool on) { knob_.glideTo(on ? 1 : 0); });
  connect(&Theme::shared(), &Theme::changed, this, [this] { update(); });
}

void ToggleSwitch::setWaiting(bool waiting) {
  if (waiting == waiting_) return;
  waiting_ = waiting;
  update();
}

QSize ToggleSwitch::sizeHint() const {
  return trackSize;
}

FocusShape::Outline ToggleSwitch::focusOutline() const {
  return {.rect = QRectF(rect()), .radius = trackSize.height() / 2.0};
}

void ToggleSwitch::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  const double on = knob_.value();
  const double hover = isEnabled() ? hover_.value() : 0;
  const QColor offKnob =
      Theme::shared().highContrast() && Theme::shared().dark() ? QColor(Qt::black) : QColor(Qt::white);
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  const QColor onTrack = mix(c.primary, c.primaryHover, hover);
  const QColor offTrack = mix(c.switchOff, Qt::black, 0.12 * hover);
  paintBox(painter, QRectF(rect()), trackSize.height() / 2.0, mix(offTrack, onTrack, on));
  if (waiting_) painter.setOpacity(waitingOpacity);
  const double travel = trackSize.width() - 2 * knobInset - knobSize;
  const QRectF knob(knobInset + on * travel, knobInset, knobSize, knobSize);
  paintBox(painter, knob, knobSize / 2, mix(offKnob, c.onPrimary, on));
}

void ToggleSwitch::nextCheckState() {
  if (click_ == Click::moves) QCheckBox::nextCheckState();
}

void ToggleSwitch::checkStateSet() {
  QCheckBox::checkStateSet();
  // What a program sets before the window is seen is no movement.
  if (!isVisible()) knob_.jumpTo(isChecked() ? 1 : 0);
}

bool ToggleSwitch::hitButton(const QPoint& position) const {
  return rect().contains(position);
}

void ToggleSwitch::enterEvent(QEnterEvent* event) {
  hover_.glideTo(1);
  QCheckBox::enterEvent(event);
}

void ToggleSwitch::leaveEvent(QEvent* event) {
  hover_.glideTo(0);
  QCheckBox::leaveEvent(event);
}

void ToggleSwitch::keyPressEvent(QKeyEvent* event) {
  if (!pressByEnter(*this, *event)) QCheckBox::keyPressEvent(event);
}

}  // namespace sentrel
