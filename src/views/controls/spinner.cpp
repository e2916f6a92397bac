// SPDX-License-Identifier: Apache-2.0
#include "views/controls/spinner.h"

#include <QPainter>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {
constexpr int ringPixels = 48;
constexpr double stroke = 5;
constexpr int frameMs = 33;
constexpr double turnMs = 1000;
constexpr double movingArc = 160;  // degrees
constexpr double stillArc = 270;
}  // namespace

Spinner::Spinner(QWidget* parent) : QWidget(parent) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  turn_.setInterval(frameMs);
  connect(&turn_, &QTimer::timeout, this, [this] { update(); });
  since_.start();
}

QSize Spinner::sizeHint() const {
  const int size = Theme::shared().iconSize(ringPixels);
  return {size, size};
}

void Spinner::showEvent(QShowEvent* event) {
  if (!Theme::shared().look().reducedMotion) turn_.start();
  QWidget::showEvent(event);
}

void Spinner::hideEvent(QHideEvent* event) {
  turn_.stop();
  QWidget::hideEvent(event);
}

void Spinner::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF ring = QRectF(rect()).adjusted(stroke / 2, stroke / 2, -stroke / 2, -stroke / 2);
  painter.setPen(QPen(withAlpha(colors().primary, 0.2), stroke));
  painter.drawEllipse(ring);
  painter.setPen(QPen(colors().primary, stroke, Qt::SolidLine, Qt::RoundCap));
  const bool still = Theme::shared().look().reducedMotion;
  const double turned =
      still ? 0 : 360.0 * static_cast<double>(since_.elapsed() % static_cast<qint64>(turnMs)) / turnMs;
  // Clockwise from the top, in sixteenths of a degree.
  painter.drawArc(ring, qRound((90 - turned) * 16), qRound(-(still ? stillArc : movingArc) * 16));
}

}  // namespace sentrel
