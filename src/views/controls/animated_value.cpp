// SPDX-License-Identifier: Apache-2.0
#include "views/controls/animated_value.h"

#include "views/theme.h"

namespace sentrel {

AnimatedValue::AnimatedValue(QWidget& widget, int milliseconds, QEasingCurve::Type curve, double initial)
    : widget_(widget), milliseconds_(milliseconds), value_(initial), target_(initial) {
  animation_.setEasingCurve(curve);
  QObject::connect(&animation_, &QVariantAnimation::valueChanged, &widget_, [this](const QVariant& value) {
    value_ = value.toDouble();
    widget_.update();
  });
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
  value_ = target;
  widget_.update();
}

}  // namespace sentrel
