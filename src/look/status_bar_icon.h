// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QIcon>
#include <QRectF>

class QPainter;

namespace sentrel {

/// The small eye in the panel. Main thread.
class StatusBarIcon {
 public:
  enum class IconState { nominal, inactive, alert, paused };

  StatusBarIcon() = delete;

  /// In every size that panels ask for; `label` is the colour that reads well on the panel.
  [[nodiscard]] static QIcon make(IconState state, const QColor& label);

  /// The drawing, in a square.
  static void paint(QPainter& painter, const QRectF& box, IconState state, const QColor& label);

  /// The label colour for a panel of about the lightness of `ground`.
  [[nodiscard]] static QColor labelOn(const QColor& ground);
};

}  // namespace sentrel
