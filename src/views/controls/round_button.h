// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPushButton>

#include "views/controls/focus_ring.h"

namespace sentrel {

/// A round button that shows a symbol; its name is for assistive technology. Main thread.
class RoundButton : public QPushButton, public FocusShape {
 public:
  RoundButton(const QString& symbol, const QString& name, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  const QString symbol_;
};

}  // namespace sentrel
