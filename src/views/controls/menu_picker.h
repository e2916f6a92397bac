// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QComboBox>

#include "views/controls/focus_ring.h"

namespace sentrel {

/// A field that opens a list of choices; the one taken has a check mark. Long words are cut in the middle.
/// Main thread.
class MenuPicker : public QComboBox, public FocusShape {
 public:
  explicit MenuPicker(const QString& name, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }
  [[nodiscard]] Outline focusOutline() const override;
  void showPopup() override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void restyle();
};

}  // namespace sentrel
