// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include "views/controls/animation.h"

namespace sentrel {

/// The eye: open while protection is active, wide and red on an alert, closed otherwise. It blinks and pulses
/// only while it is seen, and stands still where the person wants no motion. Decorative: the words beside it
/// say the same. Main thread.
class EyeLogo : public QWidget {
 public:
  enum class Mood { idleClosed, idleOpen, active, alert };

  /// `pixels` at 100 %.
  explicit EyeLogo(int pixels);

  void setMood(Mood mood);
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void showEvent(QShowEvent* /*event*/) override { animate(); }
  void hideEvent(QHideEvent* /*event*/) override { animate(); }

 private:
  void animate();
  void tick();
  void scheduleBlink();
  /// How far the eye is open just now, 0 to 1.08.
  [[nodiscard]] double lid() const;
  void paintSurroundings(QPainter& painter, const QColor& color) const;

  const int pixels_;
  Mood mood_ = Mood::idleClosed;
  QColor from_;
  AnimatedValue openness_;
  AnimatedValue color_;  // share of the new mood's colour
  QTimer ticks_;
  QTimer nextBlink_;
  QElapsedTimer sinceBlink_;
  QElapsedTimer sincePulse_;
};

}  // namespace sentrel
