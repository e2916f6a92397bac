// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QCheckBox>

#include "views/controls/animated_value.h"
#include "views/controls/focus_ring.h"

namespace sentrel {

/// A switch of 44 by 26 pixels. Its words are only for assistive technology. Main thread.
class ToggleSwitch : public QCheckBox, public FocusShape {
 public:
  /// Whether a click moves the switch, or only asks for it: then it shows what `setChecked` says.
  enum class Click { moves, asks };

  explicit ToggleSwitch(const QString& name, Click click = Click::moves, QWidget* parent = nullptr);

  /// While what was asked for is under way.
  void setWaiting(bool waiting);
  [[nodiscard]] bool waiting() const { return waiting_; }

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void nextCheckState() override;
  void checkStateSet() override;
  [[nodiscard]] bool hitButton(const QPoint& position) const override;
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  const Click click_;
  bool waiting_ = false;
  AnimatedValue knob_;
  AnimatedValue hover_;
};

}  // namespace sentrel
