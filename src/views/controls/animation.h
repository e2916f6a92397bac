// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QEasingCurve>
#include <QVariantAnimation>
#include <QWidget>
#include <functional>

namespace sentrel {

/// A number that glides to where it is sent and repaints its widget on the way. Where the person wants no
/// motion, or the widget is not seen, it is there at once. Main thread.
class AnimatedValue {
 public:
  AnimatedValue(QWidget& widget, int milliseconds, QEasingCurve::Type curve, double initial = 0);

  [[nodiscard]] double value() const { return value_; }
  void glideTo(double target);
  void jumpTo(double target);

  /// Called at each step, after the widget was told to repaint.
  std::function<void()> onStep;

 private:
  void show(double value);

  QWidget& widget_;
  QVariantAnimation animation_;
  const int milliseconds_;
  double value_;
  double target_;
};

/// Lets what `widget` shows now fade over what it will show: to be called just before it changes. Nothing
/// where the person wants no motion, or the widget is not seen. Main thread.
void fadeOver(QWidget& widget, int milliseconds);

}  // namespace sentrel
