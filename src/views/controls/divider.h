// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

namespace sentrel {

/// A hairline between two parts, one pixel high. Main thread.
class Divider : public QWidget {
 public:
  explicit Divider(QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace sentrel
