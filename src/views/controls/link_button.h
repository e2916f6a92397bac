// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "views/controls/drawn_button.h"

namespace sentrel {

/// A line of words of which the last part, after the separator "·", is a link. Main thread.
class LinkButton : public DrawnButton {
 public:
  /// `words` is "name · link".
  explicit LinkButton(const QString& words, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QString before_;
  QString link_;
};

}  // namespace sentrel
