// SPDX-License-Identifier: Apache-2.0
#include "views/live_overlay.h"

#include <QFontMetricsF>
#include <QStringList>
#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

using Timer = FilterFsm::Timer;

constexpr int easeMs = 80;
constexpr int fadeMs = 200;
constexpr std::int64_t rateMs = 2000;  // frames of so long are counted

// In pixels; text grows with the theme.
constexpr double boxRadius = 6;
constexpr double boxLine = 2;
constexpr double edge = 8;  // between what is written and the view's edge
constexpr double pillGap = 4;
constexpr double barHeight = 3;
constexpr int pillText = 11;

constexpr std::int64_t distanceStepCm = 5;
constexpr double leastWidth = 0.002;  // a pixel of the camera's picture

double asDouble(std::int64_t ms) {
  return static_cast<double>(ms);
}

QRectF boxOf(const NormalizedRect& box) {
  return {box.x, 1 - box.y - box.height, box.width, box.height};
}

QRectF between(const QRectF& from, const QRectF& to, double share) {
  const auto part = [share](double a, double b) { return a + share * (b - a); };
  return {part(from.x(), to.x()), part(from.y(), to.y()), part(from.width(), to.width()),
          part(from.height(), to.height())};
}

/// The picture is a ground of its own: on it the brighter colours of the dark scheme are told apart best.
const AppColors& pictureColors() {
  return AppColors::of(AppColors::Scheme::dark, Theme::shared().look().contrast);
}

QColor colorOf(FaceRole role) {
  if (role == FaceRole::person) return pictureColors().primary;
  return role == FaceRole::onlooker ? pictureColors().error : pictureColors().textSecondary;
}

bool isLeftOut(FaceRole role) {
  return role != FaceRole::person && role != FaceRole::onlooker;
}

/// Why a face is left out, or empty.
QString reasonOf(FaceRole role) {
  switch (role) {
    case FaceRole::guest:
      return qtTrId("invité");
    case FaceRole::tooFar:
      return qtTrId("trop loin");
    case FaceRole::turnedAway:
      return qtTrId("de profil");
    case FaceRole::ignored:
      return qtTrId("affiche");
    case FaceRole::person:
    case FaceRole::onlooker:
      break;
  }
  return {};
}

QString captionOf(const LiveFrame::Face& face) {
  const std::int64_t steps = std::llround(distanceOf(face.box.width) / distanceStepCm);
  const QString distance = QStringLiteral("%1 cm").arg(steps * distanceStepCm);
  const QString reason = reasonOf(face.role);
  return reason.isEmpty() ? distance : reason + QStringLiteral(" · ") + distance;
}

QString seconds(std::int64_t ms) {
  return qtTrId("%1,%2 s").arg(ms / 1000).arg(ms % 1000 / 100);
}

QString captionOf(const Timer& timer) {
  const auto words = [&timer] {
    switch (timer.kind) {
      case Timer::Kind::lookingAway:
        return qtTrId("regarde ailleurs depuis %1 sur %2");
      case Timer::Kind::onlooker:
        return qtTrId("quelqu'un est là depuis %1 sur %2");
      case Timer::Kind::recovery:
        return qtTrId("plus personne depuis %1 sur %2");
      case Timer::Kind::held:
        break;
    }
    return qtTrId("alerte maintenue depuis %1 sur %2");
  };
  return words().arg(seconds(timer.lastedMs), seconds(timer.lengthMs));
}

QFont pillFont() {
  return uiFont(qRound(pillText * Theme::shared().textScale()), QFont::Medium);
}

QSizeF pillSize(const QFontMetricsF& metrics, const QString& words) {
  return {std::ceil(metrics.horizontalAdvance(words)) + 12, std::ceil(metrics.height()) + 4};
}

/// White words on a dark ground, so that they are read on any picture; nothing over what is `taken`.
void paintPill(QPainter& painter, const QRectF& pill, const QString& words, std::vector<QRectF>& taken) {
  if (std::ranges::any_of(taken, [&](const QRectF& other) { return other.intersects(pill); })) return;
  taken.push_back(pill);
  const double radius = std::min(pill.height() / 2, boxRadius + boxLine);
  paintBox(painter, pill, radius, withAlpha(Qt::black, Theme::shared().highContrast() ? 1 : 0.7));
  painter.setPen(Qt::white);
  painter.drawText(pill, Qt::AlignCenter, words);
}

/// `box`, moved to where it is wholly inside `view`.
QRectF keptIn(QRectF box, const QRectF& view) {
  const auto least = [](double low, double value, double high) {
    return std::max(low, std::min(value, high));
  };
  box.moveLeft(least(view.left(), box.left(), view.right() - box.width()));
  box.moveTop(least(view.top(), box.top(), view.bottom() - box.height()));
  return box;
}

}  // namespace

void LiveOverlay::show(const LiveFrame& frame) {
  const std::int64_t now = clock_->nowMs();
  std::erase_if(faces_, [this](const Face& face) { return opacityNow(face) <= 0; });
  std::vector<Face> next;
  for (const LiveFrame::Face& seen : frame.faces) {
    const QRectF box = boxOf(seen.box);
    if (!(box.width() >= leastWidth && box.height() > 0) || !std::isfinite(box.x() + box.y())) continue;
    const auto distance = [&box](const Face& face) {
      return std::hypot(face.to.center().x() - box.center().x(), face.to.center().y() - box.center().y());
    };
    const auto nearest = std::ranges::min_element(faces_, {}, [&](const Face& face) {
      return face.lostMs ? 2 : distance(face);  // farther than any that is there
    });
    const bool isSame = nearest != faces_.end() && !nearest->lostMs && distance(*nearest) < box.width();
    next.push_back({seen, isSame ? boxNow(*nearest) : box, box, now, std::nullopt});
    if (isSame) faces_.erase(nearest);
  }
  for (Face& face : faces_) {
    if (!face.lostMs) face.lostMs = now;
    next.push_back(face);
  }
  // What must be read is written first.
  std::ranges::stable_sort(next, {}, [](const Face& face) {
    return std::tuple(face.lostMs.has_value(), isLeftOut(face.seen.role), -face.to.width());
  });
  faces_ = std::move(next);
  timers_ = frame.timers;
  frames_.push_back(frame.timestampMs);
  while (frames_.back() - frames_.front() > rateMs) frames_.pop_front();
}

void LiveOverlay::clear() {
  faces_.clear();
  timers_.clear();
  frames_.clear();
}

QRectF LiveOverlay::boxNow(const Face& face) const {
  const int duration = Theme::shared().duration(easeMs);
  const auto passed = asDouble(clock_->nowMs() - face.movedMs);
  return between(face.from, face.to, duration > 0 ? std::clamp(passed / duration, 0.0, 1.0) : 1);
}

double LiveOverlay::opacityNow(const Face& face) const {
  if (!face.lostMs) return 1;
  const int duration = Theme::shared().duration(fadeMs);
  const auto passed = asDouble(clock_->nowMs() - *face.lostMs);
  return duration > 0 ? std::clamp(1 - passed / duration, 0.0, 1.0) : 0;
}

void LiveOverlay::paint(QPainter& painter, const QRectF& view, const QTransform& place) const {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setFont(pillFont());
  for (auto face = faces_.rbegin(); face != faces_.rend(); ++face) paintFace(painter, *face, place);
  std::vector<QRectF> taken;
  paintTimers(painter, view, taken);
  paintRate(painter, view, taken);
  const QFontMetricsF metrics(painter.font());
  const QRectF inside = view.adjusted(edge, edge, -edge, -edge);
  for (const Face& face : faces_) {
    const QRectF box = place.mapRect(boxNow(face));
    if (face.lostMs || !box.intersects(view)) continue;
    const QString words = captionOf(face.seen);
    QRectF pill(QPointF(), pillSize(metrics, words));
    pill.moveTopLeft({box.center().x() - pill.width() / 2, box.bottom() + pillGap});
    const double floor =
        taken.empty() ? inside.bottom() : std::min(inside.bottom(), taken.front().top() - pillGap);
    paintPill(painter, keptIn(pill, QRectF(inside.topLeft(), QPointF(inside.right(), floor))), words, taken);
  }
  painter.restore();
}

void LiveOverlay::paintFace(QPainter& painter, const Face& face, const QTransform& place) const {
  const QRectF box = place.mapRect(boxNow(face));
  const QColor color = colorOf(face.seen.role);
  const double line = Theme::shared().highContrast() ? boxLine + 1 : boxLine;
  const auto outline = [&](const QPen& pen) {
    painter.setPen(pen);
    const double radius = std::min(boxRadius, box.width() / 4);
    painter.drawRoundedRect(box, radius, radius);
  };
  painter.setOpacity(opacityNow(face));
  painter.setBrush(Qt::NoBrush);
  const QPen ground(withAlpha(Qt::black, 0.45), line + 2);  // tells the line from any picture
  QPen pen(color, line);
  if (isLeftOut(face.seen.role)) pen.setDashPattern({3, 2});
  outline(ground);
  outline(pen);
  if (face.seen.yaw && std::isfinite(*face.seen.yaw)) {
    // As seen from above: down is towards the screen.
    const double side = place.m11() < 0 ? -1 : 1;
    const double length = box.width() / 2;
    const QPointF nose(side * std::sin(*face.seen.yaw) * length, std::cos(*face.seen.yaw) * length);
    for (QPen head : {ground, QPen(color, line)}) {
      head.setCapStyle(Qt::RoundCap);
      painter.setPen(head);
      painter.drawLine(box.center(), box.center() + nose);
    }
  }
  painter.setOpacity(1);
}

void LiveOverlay::paintTimers(QPainter& painter, const QRectF& view, std::vector<QRectF>& taken) const {
  const QFontMetricsF metrics(painter.font());
  double bottom = view.bottom() - edge;
  for (const Timer& timer : timers_) {
    const QString words = captionOf(timer);
    const QRectF bar(view.left() + edge, bottom - barHeight, view.width() - 2 * edge, barHeight);
    QRectF pill(QPointF(bar.left(), 0), pillSize(metrics, words));
    pill.setWidth(std::min(pill.width(), bar.width()));
    pill.moveBottom(bar.top() - pillGap);
    const double share = timer.lengthMs > 0 ? asDouble(timer.lastedMs) / asDouble(timer.lengthMs) : 1;
    const bool isAway = timer.kind == Timer::Kind::lookingAway;
    paintBox(painter, bar, barHeight / 2, withAlpha(Qt::black, 0.7));
    paintBox(painter, QRectF(bar.topLeft(), QSizeF(bar.width() * share, barHeight)), barHeight / 2,
             isAway ? pictureColors().warningGraphic : pictureColors().error);
    taken.insert(taken.begin(), pill);  // the highest first
    std::vector<QRectF> none;
    paintPill(painter, pill, words, none);
    bottom = pill.top() - pillGap;
  }
}

void LiveOverlay::paintRate(QPainter& painter, const QRectF& view, std::vector<QRectF>& taken) const {
  if (frames_.size() < 2 || frames_.back() <= frames_.front()) return;
  const double rate =
      static_cast<double>(frames_.size() - 1) * 1000 / asDouble(frames_.back() - frames_.front());
  const QString words = QStringLiteral("%1 fps").arg(qRound(rate));
  QRectF pill(QPointF(), pillSize(QFontMetricsF(painter.font()), words));
  pill.moveTopRight(view.topRight() + QPointF(-edge, edge));
  paintPill(painter, pill, words, taken);
}

QString LiveOverlay::words() const {
  QStringList words;
  for (const Face& face : faces_) {
    if (face.lostMs) continue;
    const FaceRole role = face.seen.role;
    words += role == FaceRole::person     ? qtTrId("vous")
             : role == FaceRole::onlooker ? qtTrId("quelqu'un")
                                          : reasonOf(role);
  }
  return words.join(QStringLiteral(", "));
}

}  // namespace sentrel
