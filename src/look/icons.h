// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QPainterPath>
#include <QRectF>
#include <QString>

class QPainter;

namespace sentrel {

/// Our drawing of a symbol ("eye.fill") on a grid of 24 by 24 units, to be filled by the even-odd rule. Empty
/// for an unknown symbol. Read once, then kept. Main thread.
[[nodiscard]] const QPainterPath& symbolPath(const QString& symbol);

/// Fills the symbol into the square `box`, antialiased. Main thread.
void paintSymbol(QPainter& painter, const QString& symbol, const QRectF& box, const QColor& color);

}  // namespace sentrel
