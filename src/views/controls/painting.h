// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QPainter>
#include <QRectF>
#include <QWidget>
#include <functional>

namespace sentrel {

// What controls are painted of. Lengths are logical pixels. Main thread.

/// How faint a control is that cannot be used.
inline constexpr double disabledOpacity = 0.45;

/// Of the popover's corners.
inline constexpr double popoverRadius = 12;

/// How far a shadow reaches beyond its box on every side.
inline constexpr int shadowReach = 32;

/// A rounded rectangle with an edge of `edgeWidth` that lies wholly inside `rect`. An invalid colour paints
/// nothing.
void paintBox(QPainter& painter, const QRectF& rect, double radius, const QColor& fill,
              const QColor& edge = {}, double edgeWidth = 1);

/// One line of words, cut where it is wider than `box`.
void paintWords(QPainter& painter, const QRectF& box, const QString& words, const QFont& font,
                const QColor& color, Qt::Alignment alignment = Qt::AlignVCenter,
                Qt::TextElideMode cut = Qt::ElideRight);

/// A soft shadow of the rounded rectangle `box`, as if it stood above its ground; `strength` 1 is a
/// popover's. Nothing in high contrast. Prepared once for each size of corner, so that painting only copies.
void paintShadow(QPainter& painter, const QRectF& box, double radius, double strength);

/// The square of `size` in the middle of `around`.
[[nodiscard]] QRectF squareIn(const QRectF& around, double size);

/// `share` 0 gives `from`, 1 gives `to`.
[[nodiscard]] QColor mix(const QColor& from, const QColor& to, double share);

[[nodiscard]] QColor withAlpha(QColor color, double alpha);

/// A widget that shows what a function paints, and nothing else.
class Canvas final : public QWidget {
 public:
  using Paint = std::function<void(QPainter& painter, const QRectF& rect)>;

  /// A square of `pixels` at 100 % that grows with the text as icons do; of any size where that is 0.
  explicit Canvas(Paint paint, int pixels = 0);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  const Paint paint_;
  const int pixels_;
};

}  // namespace sentrel
