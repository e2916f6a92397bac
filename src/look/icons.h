// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QIcon>
#include <QPainterPath>
#include <QRectF>
#include <QString>

class QPainter;

// Our own drawings. Main thread.

namespace sentrel {

/// The drawing of a symbol ("eye.fill") on a grid of 24 by 24 units, to be filled by the even-odd rule. Empty
/// for an unknown symbol. Read once, then kept.
[[nodiscard]] const QPainterPath& symbolPath(const QString& symbol);

/// Fills the symbol into the square `box`, antialiased.
void paintSymbol(QPainter& painter, const QString& symbol, const QRectF& box, const QColor& color);

/// The application's icon in the square `box`: an eye that is clear from the front and barred from the side.
/// The bars are left out where they would be smaller than a pixel or two.
void paintAppIcon(QPainter& painter, const QRectF& box);

/// The same in the sizes that desktops ask for.
[[nodiscard]] QIcon appIcon();

/// The small eye in the panel.
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
