// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAccessible>
#include <QPointer>
#include <QRectF>
#include <QWidget>

namespace sentrel {

/// Tells assistive technology what a widget of ours is, where no standard widget says it: without this it
/// would be a box that only holds others. Main thread.
void setAccessibleRole(QWidget& widget, QAccessible::Role role);

/// What a control tells the focus ring about its own outline.
class FocusShape {
 public:
  struct Outline {
    QRectF rect = {};   ///< in the control's coordinates; empty for the whole control
    double radius = 8;  ///< of its corners
    double gap = 2;     ///< between outline and ring; negative where the ring lies inside
  };
  virtual ~FocusShape() = default;
  [[nodiscard]] virtual Outline focusOutline() const { return {}; }
};

/// The ring around the control that has the keyboard's focus, once a key has been used in the window; a press
/// of the mouse hides it again. One for each window; it lies over the controls and lets the mouse through.
/// Main thread.
class FocusRing final : public QObject {
 public:
  /// Belongs to `window` and serves the controls in it.
  explicit FocusRing(QWidget& window);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void place();

  QWidget& window_;
  QPointer<QWidget> control_;
  QPointer<QWidget> drawing_;  // goes with what it lies on, and is then made anew
  double radius_ = 0;          // of its corners
  bool shown_ = false;
};

}  // namespace sentrel
