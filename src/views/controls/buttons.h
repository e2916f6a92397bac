// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCheckBox>
#include <QPushButton>

#include "look/fonts.h"
#include "views/controls/accessibility.h"
#include "views/controls/animation.h"

// The buttons, which paint themselves. Main thread.

namespace sentrel {

/// Enter presses a button as the space bar does. True when the event was such a press.
bool pressByEnter(QAbstractButton& button, const QKeyEvent& event);

/// What every button has in common, whichever of Qt's it is: it is as large as its hint says, Enter presses
/// it, and it knows how far the pointer is over it.
template <class Button>
class Drawn : public Button, public FocusShape {
 public:
  explicit Drawn(const QString& words) : Button(words) {
    this->setFocusPolicy(Qt::StrongFocus);
    this->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  }

 protected:
  /// 0 to 1; 0 for a button that cannot be used.
  [[nodiscard]] double hover() const { return this->isEnabled() ? isHovered.value() : 0; }

  void enterEvent(QEnterEvent* event) override {
    isHovered.glideTo(1);
    Button::enterEvent(event);
  }
  void leaveEvent(QEvent* event) override {
    isHovered.glideTo(0);
    Button::leaveEvent(event);
  }
  void keyPressEvent(QKeyEvent* event) override {
    if (!pressByEnter(*this, *event)) Button::keyPressEvent(event);
  }

 private:
  AnimatedValue isHovered{*this, 100, QEasingCurve::Linear};
};

/// A button with words in the font of a role.
class DrawnButton : public Drawn<QPushButton> {
 public:
  DrawnButton(TextRole role, const QString& words);

 protected:
  /// A tint below what is pointed at or pressed, with the opacity of each.
  void paintGround(QPainter& painter, const QRectF& rect, double radius, double pointed, double pressed);

  void mousePressEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  bool pressed_ = false;  // ever
};

/// A button with words, of one of four weights; it may carry a symbol before the words.
class PushButton : public DrawnButton {
 public:
  enum class Kind { primary, secondary, plain, destructive };

  PushButton(Kind kind, const QString& words);

  /// Before it is shown. At 100 %; grows with the text.
  void setButtonHeight(int pixels) { height_ = pixels; }
  void setSymbol(const QString& symbol) { symbol_ = symbol; }

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  [[nodiscard]] int padding() const;
  [[nodiscard]] int symbolWidth() const;
  /// Gives the colour of the words.
  [[nodiscard]] QColor paintKind(QPainter& painter);

  const Kind kind_;
  int height_ = 36;
  QString symbol_;
};

/// A switch of 44 by 26 pixels. Its words are only for assistive technology.
class ToggleSwitch : public Drawn<QCheckBox> {
 public:
  /// Whether a click moves the switch, or only asks for it: then it shows what `setChecked` says.
  enum class Click { moves, asks };

  explicit ToggleSwitch(const QString& name, Click click = Click::moves);

  /// While what was asked for is under way, the knob is paler.
  void setWaiting(bool waiting);
  [[nodiscard]] bool waiting() const { return waiting_; }

  [[nodiscard]] QSize sizeHint() const override { return trackSize; }
  [[nodiscard]] Outline focusOutline() const override { return {.radius = trackSize.height() / 2.0}; }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void nextCheckState() override;
  void checkStateSet() override;
  [[nodiscard]] bool hitButton(const QPoint& position) const override { return rect().contains(position); }

 private:
  static constexpr QSize trackSize{44, 26};

  const Click click_;
  bool waiting_ = false;
  AnimatedValue knob_;
};

}  // namespace sentrel
