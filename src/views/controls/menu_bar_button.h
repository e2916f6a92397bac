// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "views/controls/drawn_button.h"

namespace sentrel {

/// One row of the popover: a symbol and a label over the full width. Main thread.
class MenuBarButton : public DrawnButton {
 public:
  /// `label` is shown as it is.
  MenuBarButton(const QString& icon, const QString& label, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString icon;
};

}  // namespace sentrel
