// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QRasterWindow>

namespace sentrel::test {

/// What lies on the screen while the demonstration runs: a desktop with a confidential document, so that its
/// pictures show what is covered. Fills the screen, at the very bottom.
class DocumentDesktop final : public QRasterWindow {
 public:
  DocumentDesktop();
  /// Whether it has been painted at least once.
  [[nodiscard]] bool isPainted() const { return painted_; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  bool painted_ = false;
};

}  // namespace sentrel::test
