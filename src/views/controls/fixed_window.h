// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSize>
#include <QWidget>

namespace sentrel {

/// A window with a title and of one size, which grows with the text and never beyond most of the work area.
/// It shows where the keyboard's focus is, and closes by the desktop's key for that. Main thread.
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

}  // namespace sentrel
