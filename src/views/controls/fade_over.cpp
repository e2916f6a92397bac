// SPDX-License-Identifier: Apache-2.0
#include "views/controls/fade_over.h"

#include <QPainter>
#include <QPixmap>
#include <QVariantAnimation>
#include <QWidget>

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

}  // namespace sentrel
