// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

namespace sentrel {

/// A ring that turns once a second while it is seen; without motion it stands still. Main thread.
class Spinner : public QWidget {
 public:
  explicit Spinner(QWidget* parent = nullptr);
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  QTimer turn_;
  QElapsedTimer since_;
};

}  // namespace sentrel
