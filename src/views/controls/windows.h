// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPointer>
#include <QSize>
#include <QWidget>
#include <functional>

#include "look/palette.h"
#include "views/controls/animation.h"
#include "views/controls/buttons.h"

// What holds everything else: windows, and what opens over one. Main thread.

namespace sentrel {

/// A window with a title and of one size, which grows with the text and never beyond most of the work area.
/// It shows where the keyboard's focus is, and closes by the desktop's key for that.
class FixedWindow : public QWidget {
 public:
  /// `size` at 100 % text; with text twice as large, the share `addedForText` of it is added.
  FixedWindow(const QString& title, QSize size, double addedForText);

  /// Opens it in the middle of the work area; brings it back and to the front where it is open.
  void present();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void resizeToText();

  const QSize size_;
  const double addedForText_;
};

/// A panel over its dimmed window: keeps the keyboard's focus within and gives it back when it goes. Fills
/// the widget that it belongs to and follows its size.
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

  /// The Escape key; it dismisses, unless it is told otherwise.
  std::function<void()> onEscape = [this] { dismiss(); };
  std::function<void()> onClosed;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  /// What lies below cannot be reached.
  void mousePressEvent(QMouseEvent* /*event*/) override {}
  void keyPressEvent(QKeyEvent* event) override;
  void resizeEvent(QResizeEvent* /*event*/) override { placePanel(); }
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

/// A question, or something to take note of, with two answers.
struct Dialog {
  QString symbol;
  QColor AppColors::*color;  ///< of the symbol
  QString words;
  QString cancel;  ///< the answer that changes nothing: it has the focus first, and Escape gives it
  QString confirm;
  PushButton::Kind kind;  ///< of the button that confirms
  std::function<void()> confirmed;
};

/// Asks it over `popover`. The sheet is the popover's, and goes with either answer.
Sheet* openDialog(QWidget& popover, const Dialog& dialog);

}  // namespace sentrel
