// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

#include "views/controls/animated_value.h"

namespace sentrel {

/// A row of dots, one for each page; assistive technology is told "Step 2 of 5". Main thread.
class PageDots : public QWidget {
 public:
  explicit PageDots(int pages, QWidget* parent = nullptr);

  void setPage(int page);
  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const int pages_;
  AnimatedValue page_;
};

}  // namespace sentrel
