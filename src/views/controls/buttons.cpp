// SPDX-License-Identifier: Apache-2.0
#include "views/controls/buttons.h"

#include <QKeyEvent>
#include <algorithm>
#include <cmath>

#include "look/icons.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

bool pressByEnter(QAbstractButton& button, const QKeyEvent& event) {
  if (event.key() != Qt::Key_Return && event.key() != Qt::Key_Enter) return false;
  if (!event.isAutoRepeat()) button.click();
  return true;
}

// DrawnButton.

DrawnButton::DrawnButton(TextRole role, const QString& words) : Drawn(words) {
  setFlat(true);
  setAutoDefault(false);
  useFont(*this, role);
}

void DrawnButton::paintGround(QPainter& painter, const QRectF& rect, double radius, double pointed,
                              double pressed) {
  paintBox(painter, rect, radius, withAlpha(colors().primary, isDown() ? pressed : pointed * hover()));
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

// PushButton.

namespace {
constexpr double pushRadius = 8;
constexpr int pushSymbolPixels = 14;
}  // namespace

PushButton::PushButton(Kind kind, const QString& words)
    : DrawnButton(TextRole::bodyButton, words), kind_(kind) {}

int PushButton::padding() const {
  return kind_ == Kind::plain ? 10 : 18;
}

int PushButton::symbolWidth() const {
  return symbol_.isEmpty() ? 0 : Theme::shared().iconSize(pushSymbolPixels) + 6;
}

QSize PushButton::sizeHint() const {
  const double words = std::ceil(QFontMetricsF(font()).horizontalAdvance(text()));
  return {static_cast<int>(words) + 2 * padding() + symbolWidth(), Theme::shared().grown(height_)};
}

QColor PushButton::paintKind(QPainter& painter) {
  const AppColors& c = colors();
  const bool high = Theme::shared().highContrast();
  const QRectF box(rect());
  switch (kind_) {
    case Kind::primary:
      paintBox(painter, box, pushRadius,
               isDown() ? c.primaryPressed : mix(c.primary, c.primaryHover, hover()));
      return c.onPrimary;
    case Kind::destructive:
      paintBox(painter, box, pushRadius, mix(c.errorFill, Qt::black, isDown() ? 0.15 : 0.07 * hover()));
      return c.onError;
    case Kind::plain:
      paintGround(painter, box, pushRadius, 0.08, 0.14);
      return c.primary;
    case Kind::secondary:
      break;
  }
  paintBox(painter, box, pushRadius, isDown() && !high ? c.border : mix(c.surface, c.surfaceAlt, hover()),
           c.controlBorder, isDown() && high ? 3 : 1);
  return c.text;
}

void PushButton::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  const QColor words = paintKind(painter);
  if (!symbol_.isEmpty()) {
    const int size = Theme::shared().iconSize(pushSymbolPixels);
    paintSymbol(painter, symbol_, QRectF(padding() - 4, (height() - size) / 2.0, size, size), words);
  }
  const int aside = std::min(padding(), 8);
  paintWords(painter, QRectF(rect()).adjusted(aside + symbolWidth(), 0, -aside, 0), text(), font(), words,
             Qt::AlignCenter);
}

// ToggleSwitch.

namespace {
constexpr double knobSize = 20;
constexpr double knobInset = 3;
constexpr int slideMs = 140;
constexpr double waitingOpacity = 0.6;
}  // namespace

ToggleSwitch::ToggleSwitch(const QString& name, Click click)
    : Drawn(QString()), click_(click), knob_(*this, slideMs, QEasingCurve::OutCubic) {
  setAccessibleName(name);
  setAttribute(Qt::WA_Hover);
  connect(this, &QCheckBox::toggled, this, [this](bool on) { knob_.glideTo(on ? 1 : 0); });
}

void ToggleSwitch::setWaiting(bool waiting) {
  waiting_ = waiting;
  update();
}

void ToggleSwitch::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  const double on = knob_.value();
  const QColor offKnob =
      Theme::shared().highContrast() && Theme::shared().dark() ? QColor(Qt::black) : QColor(Qt::white);
  const QColor onTrack = mix(c.primary, c.primaryHover, hover());
  const QColor offTrack = mix(c.switchOff, Qt::black, 0.12 * hover());
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
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

}  // namespace sentrel
