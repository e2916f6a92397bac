// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLayout>
#include <QWidget>

namespace sentrel {

/// A hairline between two parts, one pixel high. Main thread.
class Divider : public QWidget {
 public:
  explicit Divider(QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent* event) override;
};

/// A divider that keeps away from the ends of its line, in pixels. For a layout to take.
[[nodiscard]] QLayout* insetDivider(int left, int right);

}  // namespace sentrel
