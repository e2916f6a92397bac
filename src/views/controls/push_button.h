// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "views/controls/drawn_button.h"

namespace sentrel {

/// A button with words, of one of four weights; it may carry a symbol before the words. Main thread.
class PushButton : public DrawnButton {
 public:
  enum class Kind { primary, secondary, plain, destructive };

  PushButton(Kind kind, const QString& words, QWidget* parent = nullptr);

  /// At 100 %; grows with the text.
  void setButtonHeight(int pixels);
  void setSymbol(const QString& symbol);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] Outline focusOutline() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  [[nodiscard]] int padding() const;
  [[nodiscard]] int symbolWidth() const;

  const Kind kind_;
  int height_ = 36;
  QString symbol_;
};

}  // namespace sentrel
