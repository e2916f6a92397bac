// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPainter>
#include <QRectF>
#include <QString>
#include <QTransform>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "service/live_view.h"
#include "support/main_loop.h"

namespace sentrel {

/// Draws what protection sees over the camera's picture: a box around every face, with the reason why it is
/// left out, its distance and the direction of the head; the timers that run; and how many frames a second
/// are analysed. Boxes glide to their next place, and lost ones fade, with the picture's own frames: nothing
/// is repainted for them. Main thread.
class LiveOverlay {
 public:
  explicit LiveOverlay(std::shared_ptr<const Clock> clock) : clock_(std::move(clock)) {}

  void show(const LiveFrame& frame);
  void clear();
  /// `place` takes a picture of size 1 by 1, with its origin at the top left, to where it is shown; `view` is
  /// the part of it that is seen.
  void paint(QPainter& painter, const QRectF& view, const QTransform& place) const;
  /// The same for assistive technology: what each face is taken for.
  [[nodiscard]] QString words() const;

 private:
  /// A face where it was drawn last, and where it goes.
  struct Face {
    LiveFrame::Face seen;
    QRectF from;
    QRectF to;
    std::int64_t movedMs = 0;
    std::optional<std::int64_t> lostMs;
  };

  [[nodiscard]] QRectF boxNow(const Face& face) const;
  [[nodiscard]] double opacityNow(const Face& face) const;
  void paintFace(QPainter& painter, const Face& face, const QTransform& place) const;
  void paintTimers(QPainter& painter, const QRectF& view, std::vector<QRectF>& taken) const;
  void paintRate(QPainter& painter, const QRectF& view, std::vector<QRectF>& taken) const;

  const std::shared_ptr<const Clock> clock_;
  std::vector<Face> faces_;  // those that matter most first
  std::vector<FilterFsm::Timer> timers_;
  std::deque<std::int64_t> frames_;  // when those of the last two seconds were accepted
};

}  // namespace sentrel
