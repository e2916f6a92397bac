// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPushButton>

#include "look/fonts.h"
#include "views/controls/animated_value.h"
#include "views/controls/focus_ring.h"

namespace sentrel {

/// What every button that paints itself has in common: it follows the theme in the font of its role, is as
/// large as its hint says, Enter presses it as the space bar does, and it knows how far the pointer is over
/// it. Main thread.
class DrawnButton : public QPushButton, public FocusShape {
 public:
  DrawnButton(TextRole role, const QString& words, QWidget* parent);

  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  /// 0 to 1; 0 for a button that cannot be used.
  [[nodiscard]] double hover() const { return isEnabled() ? isHovered.value() : 0; }

  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  bool pressed_ = false;  // ever
  AnimatedValue isHovered;
};

/// Enter presses a button as the space bar does. True when the event was such a press.
bool pressByEnter(QAbstractButton& button, const QKeyEvent& event);

}  // namespace sentrel
