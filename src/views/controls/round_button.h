// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "views/controls/drawn_button.h"

namespace sentrel {

/// A round button that shows a symbol; its name is for assistive technology. Main thread.
class RoundButton : public DrawnButton {
 public:
  RoundButton(const QString& symbol, const QString& name, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString symbol_;
};

}  // namespace sentrel
