// SPDX-License-Identifier: Apache-2.0
#include "views/controls/buttons.h"

#include <QKeyEvent>
#include <QPainter>
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

// RoundButton.

RoundButton::RoundButton(const QString& symbol, const QString& name)
    : DrawnButton(TextRole::body, {}), symbol_(symbol) {
  setAccessibleName(name);
}

QSize RoundButton::sizeHint() const {
  return QSize(1, 1) * Theme::shared().iconSize(36);
}

FocusShape::Outline RoundButton::focusOutline() const {
  return {.radius = width() / 2.0, .gap = 0};
}

void RoundButton::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  if (!isEnabled()) painter.setOpacity(disabledOpacity);
  paintGround(painter, QRectF(rect()), width() / 2.0, 0.08, 0.14);
  paintSymbol(painter, symbol_, squareIn(QRectF(rect()), Theme::shared().iconSize(24)), colors().primary);
}

// LinkButton.

namespace {
constexpr int linkSymbolPixels = 12;
constexpr int linkSymbolGap = 7;
constexpr double aroundSeparator = 6;
const QString separator = QStringLiteral("·");
}  // namespace

LinkButton::LinkButton(const QString& words) : DrawnButton(TextRole::caption, {}) {
  const auto cut = words.indexOf(separator);
  before_ = words.left(cut).trimmed();
  setText(words.mid(cut + 1).trimmed());
  setCursor(Qt::PointingHandCursor);
}

double LinkButton::linkLeft() const {
  const QFontMetricsF metrics(font());
  return metrics.horizontalAdvance(before_) + metrics.horizontalAdvance(separator) + 2 * aroundSeparator;
}

QSize LinkButton::sizeHint() const {
  const double words = linkLeft() + QFontMetricsF(font()).horizontalAdvance(text());
  return {static_cast<int>(std::ceil(words)) + linkSymbolGap + Theme::shared().iconSize(linkSymbolPixels) + 2,
          Theme::shared().grown(20, 16)};
}

FocusShape::Outline LinkButton::focusOutline() const {
  return {.rect = QRectF(rect()).adjusted(linkLeft(), 0, 0, 0), .radius = 4};
}

void LinkButton::paintEvent(QPaintEvent* /*event*/) {
  const AppColors& c = colors();
  const QFontMetricsF metrics(font());
  QPainter painter(this);
  painter.setFont(font());
  painter.setPen(c.textSecondary);
  const double baseline = (height() - metrics.height()) / 2 + metrics.ascent();
  painter.drawText(QPointF(0, baseline), before_);
  painter.drawText(QPointF(metrics.horizontalAdvance(before_) + aroundSeparator, baseline), separator);
  const QColor color = mix(c.primary, c.primaryHover, hover());
  const double left = linkLeft();
  const double width = metrics.horizontalAdvance(text());
  painter.setPen(color);
  painter.drawText(QPointF(left, baseline), text());
  painter.fillRect(QRectF(left, std::round(baseline + 2), width, 1), color);
  const double size = Theme::shared().iconSize(linkSymbolPixels);
  paintSymbol(painter, QStringLiteral("arrow.up.right.square"),
              QRectF(left + width + linkSymbolGap, (height() - size) / 2, size, size), color);
}

// MenuBarButton.

namespace {
constexpr int outsideRow = 4;  // left and right of the row
constexpr int insideRow = 16;  // between the row's edge and the symbol's frame
constexpr int iconFrame = 20;
constexpr int iconGap = 8;
constexpr double rowRadius = 6;
}  // namespace

MenuBarButton::MenuBarButton(const QString& symbol, const QString& label)
    : DrawnButton(TextRole::body, label), icon(symbol) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize MenuBarButton::sizeHint() const {
  const int words = QFontMetrics(font()).horizontalAdvance(text());
  return {2 * (outsideRow + insideRow) + Theme::shared().iconSize(iconFrame) + iconGap + words,
          Theme::shared().grown(36)};
}

QRectF MenuBarButton::row() const {
  return QRectF(rect()).adjusted(outsideRow, 0, -outsideRow, 0);
}

FocusShape::Outline MenuBarButton::focusOutline() const {
  return {.rect = row(), .radius = rowRadius, .gap = -2};
}

void MenuBarButton::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const QRectF line = row();
  paintGround(painter, line, rowRadius, 0.06, 0.12);
  const int frame = Theme::shared().iconSize(iconFrame);
  paintSymbol(painter, icon,
              squareIn(QRectF(line.left() + insideRow, 0, frame, height()), Theme::shared().iconSize(17)),
              colors().textSecondary);
  paintWords(painter, line.adjusted(insideRow + frame + iconGap, 0, -insideRow, 0), text(), font(),
             colors().text);
}

// ToggleSwitch.

namespace {
constexpr QSize trackSize(44, 26);
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

QSize ToggleSwitch::sizeHint() const {
  return trackSize;
}

FocusShape::Outline ToggleSwitch::focusOutline() const {
  return {.radius = trackSize.height() / 2.0};
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

bool ToggleSwitch::hitButton(const QPoint& position) const {
  return rect().contains(position);
}

}  // namespace sentrel
