// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPushButton>

#include "views/controls/animated_value.h"
#include "views/controls/focus_ring.h"

namespace sentrel {

/// A button with words, of one of four weights; it may carry a symbol before the words. Main thread.
class PushButton : public QPushButton, public FocusShape {
 public:
  enum class Kind { primary, secondary, plain, destructive };

  PushButton(Kind kind, const QString& words, QWidget* parent = nullptr);

  /// At 100 %; grows with the text.
  void setButtonHeight(int pixels);
  void setSymbol(const QString& symbol);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  [[nodiscard]] int padding() const;
  [[nodiscard]] int symbolWidth() const;

  const Kind kind_;
  int height_ = 36;
  QString symbol_;
  AnimatedValue hover_;
};

/// Enter presses a button as the space bar does. True when the event was such a press.
bool pressByEnter(QAbstractButton& button, const QKeyEvent& event);

}  // namespace sentrel
