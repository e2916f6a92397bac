// SPDX-License-Identifier: Apache-2.0
#include "views/controls/animation.h"

#include <QPainter>
#include <QPixmap>

#include "views/theme.h"

namespace sentrel {

namespace {

/// A picture of the past that grows faint and goes.
class Afterimage final : public QWidget {
 public:
  Afterimage(QWidget& widget, int milliseconds) : QWidget(&widget), picture_(widget.grab()) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setGeometry(widget.rect());
    fading_.setStartValue(1.0);
    fading_.setEndValue(0.0);
    fading_.setDuration(milliseconds);
    fading_.setEasingCurve(QEasingCurve::InOutCubic);
    connect(&fading_, &QVariantAnimation::valueChanged, this, [this] { update(); });
    connect(&fading_, &QVariantAnimation::finished, this, &QWidget::deleteLater);
    show();
    raise();
    fading_.start();
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.setOpacity(fading_.currentValue().toDouble());
    painter.drawPixmap(0, 0, picture_);
  }

 private:
  const QPixmap picture_;
  QVariantAnimation fading_;
};

}  // namespace

void fadeOver(QWidget& widget, int milliseconds) {
  const int duration = Theme::shared().duration(milliseconds);
  // Its parent owns it until it has faded.
  if (duration > 0 && widget.isVisible()) new Afterimage(widget, duration);
}

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
