// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPushButton>

#include "views/controls/focus_ring.h"

namespace sentrel {

/// One row of the popover: a symbol and a label over the full width. Main thread.
class MenuBarButton : public QPushButton, public FocusShape {
 public:
  /// `label` is shown as it is.
  MenuBarButton(const QString& icon, const QString& label, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  const QString icon;
  bool isHovered = false;
};

}  // namespace sentrel
