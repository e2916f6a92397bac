// SPDX-License-Identifier: Apache-2.0
#include "views/controls/animation.h"

#include <QPixmap>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

void fadeOver(QWidget& widget, int milliseconds) {
  const int duration = Theme::shared().duration(milliseconds);
  if (duration == 0 || !widget.isVisible()) return;
  // A picture of the past that grows faint and goes.
  auto* fading = new QVariantAnimation;
  auto* past = new Canvas([fading, picture = widget.grab()](QPainter& painter, const QRectF& /*rect*/) {
    painter.setOpacity(fading->currentValue().toDouble());
    painter.drawPixmap(0, 0, picture);
  });
  past->setParent(&widget);
  past->setAttribute(Qt::WA_TransparentForMouseEvents);
  past->setGeometry(widget.rect());
  fading->setParent(past);
  fading->setStartValue(1.0);
  fading->setEndValue(0.0);
  fading->setDuration(duration);
  fading->setEasingCurve(QEasingCurve::InOutCubic);
  QObject::connect(fading, &QVariantAnimation::valueChanged, past, [past] { past->update(); });
  QObject::connect(fading, &QVariantAnimation::finished, past, &QWidget::deleteLater);
  past->show();
  past->raise();
  fading->start();
}

AnimatedValue::AnimatedValue(QWidget& widget, int milliseconds, QEasingCurve::Type curve, double initial)
    : widget_(widget), milliseconds_(milliseconds), value_(initial), target_(initial) {
  animation_.setEasingCurve(curve);
  QObject::connect(&animation_, &QVariantAnimation::valueChanged, &widget_,
                   [this](const QVariant& value) { show(value.toDouble()); });
}

void AnimatedValue::show(double value) {
  value_ = value;
  widget_.update();
  if (onStep) onStep();
}

void AnimatedValue::glideTo(double target) {
  if (target == target_) return;
  const int milliseconds = Theme::shared().duration(milliseconds_);
  if (milliseconds == 0 || !widget_.isVisible()) {
    jumpTo(target);
    return;
  }
  target_ = target;
  animation_.stop();
  animation_.setStartValue(value_);
  animation_.setEndValue(target);
  animation_.setDuration(milliseconds);
  animation_.start();
}

void AnimatedValue::jumpTo(double target) {
  animation_.stop();
  target_ = target;
  show(target);
}

}  // namespace sentrel
