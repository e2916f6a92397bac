// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>
#include <QSize>
#include <QWidget>
#include <functional>

#include "views/controls/animated_value.h"

namespace sentrel {

/// A panel over its dimmed window: keeps the keyboard's focus within and gives it back when it goes. Fills
/// the widget that it belongs to and follows its size. Main thread.
class Sheet : public QWidget {
 public:
  /// `size` is the panel's least size; it grows with text and content and never beyond the window.
  Sheet(QWidget& window, QSize size);

  /// Where the content's layout goes.
  [[nodiscard]] QWidget* panel() const { return panel_; }

  /// Of the window's corners, where the window itself is rounded.
  void setCornerRadius(double radius) { cornerRadius_ = radius; }

  /// Shows the sheet and gives the focus to `focus`.
  void open(QWidget* focus);
  /// Hides it, calls `onClosed` and deletes it in a later turn. Again is harmless.
  void dismiss();

  /// The Escape key.
  std::function<void()> onEscape;
  std::function<void()> onClosed;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  bool focusNextPrevChild(bool next) override;

 private:
  void placePanel();

  const QSize size_;
  QWidget* panel_;
  QPointer<QWidget> before_;  // who had the focus
  AnimatedValue presence_;
  bool dismissed_ = false;
  double cornerRadius_ = 0;
};

}  // namespace sentrel
