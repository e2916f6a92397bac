// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

#include "look/palette.h"

namespace sentrel {

/// A symbol in a colour of the theme, perhaps on a round disc. Decorative. Main thread.
class SymbolView : public QWidget {
 public:
  /// `pixels` at 100 %.
  SymbolView(const QString& symbol, int pixels, QColor AppColors::*color, QWidget* parent = nullptr);

  /// The symbol stands in the middle of a disc of `pixels`.
  void setDisc(int pixels) { disc_ = pixels; }

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const QString symbol_;
  const int pixels_;
  QColor AppColors::*const color_;
  int disc_ = 0;
};

}  // namespace sentrel
