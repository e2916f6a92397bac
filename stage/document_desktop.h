// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QRasterWindow>

namespace sentrel::test {

/// What lies on the screen while the demonstration runs: a desktop with a confidential document, so that its
/// pictures show what is covered. Fills the screen, at the very bottom.
class DocumentDesktop final : public QRasterWindow {
 public:
  DocumentDesktop();
  /// Whether it has been painted at least once. The display server shows it some time later.
  [[nodiscard]] bool isPainted() const { return painted_; }
  /// Whether a picture of the whole screen shows it, uncovered.
  [[nodiscard]] static bool isShownIn(const QImage& screen);
  /// How many times a mouse button was pressed on it.
  [[nodiscard]] int clicks() const { return clicks_; }
  /// How many times a key was pressed in it.
  [[nodiscard]] int keys() const { return keys_; }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* /*event*/) override { ++clicks_; }
  void keyPressEvent(QKeyEvent* /*event*/) override { ++keys_; }

 private:
  bool painted_ = false;
  int clicks_ = 0;
  int keys_ = 0;
};

}  // namespace sentrel::test
