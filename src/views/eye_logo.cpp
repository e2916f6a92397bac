// SPDX-License-Identifier: Apache-2.0
#include "views/eye_logo.h"

#include <QPainterPath>
#include <QRadialGradient>
#include <QRandomGenerator>
#include <algorithm>
#include <array>
#include <cmath>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

using Mood = EyeLogo::Mood;

constexpr double units = 64;
constexpr double closedBelow = 0.02;  // openness at which the lashes are drawn instead of a slit
constexpr int openMs = 220;
constexpr int colorMs = 160;
constexpr int frameMs = 40;
constexpr int blinkDownMs = 90;
constexpr int blinkHoldMs = 40;
constexpr int blinkUpMs = 140;
constexpr double blinkTo = 0.06;
constexpr double pulseMs = 2400;
constexpr double alertPulseMs = 1200;
const QColor pupilColor(0x15, 0x17, 0x2A);

/// How a mood looks.
struct Expression {
  double openness;  ///< 0 to 1.08
  QColor AppColors::*color;
  bool pulses;
};

const Expression& expressionOf(Mood mood) {
  static constexpr std::array expressions{
      Expression{0, &AppColors::textSecondary, false},  // idleClosed
      Expression{0.72, &AppColors::primary, false},     // idleOpen
      Expression{0.94, &AppColors::primary, true},      // active
      Expression{1.08, &AppColors::error, true},        // alert
  };
  return expressions.at(static_cast<std::size_t>(mood));
}

QColor colorOf(Mood mood) {
  return colors().*expressionOf(mood).color;
}

void paintClosed(QPainter& painter, const QColor& color) {
  QPainterPath lid(QPointF(7, 29));
  lid.cubicTo(19, 45, 45, 45, 57, 29);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(color, 3.8, Qt::SolidLine, Qt::RoundCap));
  painter.drawPath(lid);
  painter.setPen(QPen(color, 3.2, Qt::SolidLine, Qt::RoundCap));
  constexpr std::array<std::array<double, 4>, 4> lashes{
      {{14, 36.6, 10.6, 43}, {25, 40.4, 23.6, 47.6}, {39, 40.4, 40.4, 47.6}, {50, 36.6, 53.4, 43}}};
  for (const auto& [x1, y1, x2, y2] : lashes) painter.drawLine(QPointF(x1, y1), QPointF(x2, y2));
}

void paintRings(QPainter& painter, const QColor& color, double pulse) {
  painter.setBrush(Qt::NoBrush);
  for (const double start : {0.0, 0.5}) {
    const double at = std::fmod(pulse + start, 1.0);
    const double radius = 14 + (31 - 14) * at;
    painter.setPen(QPen(withAlpha(color, 0.42 * (1 - at)), 1.8));
    painter.drawEllipse(QPointF(32, 32), radius, radius);
  }
}

void paintOpen(QPainter& painter, Mood mood, double openness, const QColor& color) {
  const double upper = 32 - 20 * openness + 14 * (1 - openness);
  const double lower = 32 + 20 * openness + 14 * (1 - openness);
  QPainterPath almond(QPointF(5, 32));
  almond.cubicTo(17, upper, 47, upper, 59, 32);
  almond.cubicTo(47, lower, 17, lower, 5, 32);
  almond.closeSubpath();
  const bool dark = Theme::shared().dark();
  painter.fillPath(almond, dark ? QColor(0x15, 0x16, 0x1C) : QColor(Qt::white));

  painter.save();
  painter.setClipPath(almond);
  QRadialGradient iris(QPointF(32, 32), 12.2, QPointF(29, 28));
  iris.setColorAt(0, color.lighter(dark ? 112 : 135));
  iris.setColorAt(1, color);
  painter.setPen(Qt::NoPen);
  painter.setBrush(iris);
  painter.drawEllipse(QPointF(32, 32), 12.2, 12.2);
  const double pupil = mood == Mood::alert ? 4.6 : 5.8;
  painter.setBrush(pupilColor);
  painter.drawEllipse(QPointF(32, 32), pupil, pupil);
  painter.setBrush(Qt::white);
  painter.drawEllipse(QPointF(36, 27.6), 2.5, 2.5);
  painter.restore();

  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(color, 3.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.drawPath(almond);
}

}  // namespace

EyeLogo::EyeLogo(int pixels)
    : pixels_(pixels),
      openness_(*this, openMs, QEasingCurve::InOutCubic),
      color_(*this, colorMs, QEasingCurve::Linear, 1) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  setAttribute(Qt::WA_TransparentForMouseEvents);
  ticks_.setInterval(frameMs);
  nextBlink_.setSingleShot(true);
  connect(&ticks_, &QTimer::timeout, this, [this] { tick(); });
  connect(&nextBlink_, &QTimer::timeout, this, [this] {
    sinceBlink_.start();
    ticks_.start();
    scheduleBlink();
  });
  connect(&Theme::shared(), &Theme::changed, this, [this] { animate(); });
}

QSize EyeLogo::sizeHint() const {
  return QSize(1, 1) * Theme::shared().iconSize(pixels_);
}

void EyeLogo::setMood(Mood mood) {
  if (mood == mood_) return;
  from_ = colorOf(mood_);
  mood_ = mood;
  openness_.glideTo(expressionOf(mood).openness);
  color_.jumpTo(0);
  color_.glideTo(1);
  sincePulse_.start();
  animate();
}

void EyeLogo::animate() {
  const bool moves = isVisible() && !Theme::shared().look().reducedMotion;
  if (moves && expressionOf(mood_).pulses) {
    if (!sincePulse_.isValid()) sincePulse_.start();
    ticks_.start();
  } else {
    ticks_.stop();
  }
  sinceBlink_.invalidate();
  nextBlink_.stop();
  if (moves) scheduleBlink();
  update();
}

void EyeLogo::scheduleBlink() {
  if (mood_ == Mood::idleOpen) nextBlink_.start(6000);
  if (mood_ == Mood::active) nextBlink_.start(4200 + QRandomGenerator::global()->bounded(-1200, 1201));
}

void EyeLogo::tick() {
  if (sinceBlink_.isValid() && sinceBlink_.elapsed() > blinkDownMs + blinkHoldMs + blinkUpMs) {
    sinceBlink_.invalidate();
    if (!expressionOf(mood_).pulses) ticks_.stop();
  }
  update();
}

double EyeLogo::lid() const {
  const double open = openness_.value();
  if (!sinceBlink_.isValid()) return open;
  const auto at = static_cast<double>(sinceBlink_.elapsed());
  double share = 0;  // of the way back up
  if (at < blinkDownMs) {
    share = 1 - std::pow(at / blinkDownMs, 2);
  } else if (at > blinkDownMs + blinkHoldMs) {
    const double up = std::min(1.0, (at - blinkDownMs - blinkHoldMs) / blinkUpMs);
    share = 1 - std::pow(1 - up, 2);
  }
  return blinkTo + (open - blinkTo) * share;
}

void EyeLogo::paintEvent(QPaintEvent* /*event*/) {
  const QColor now = colorOf(mood_);
  const QColor color = mix(from_.isValid() ? from_ : now, now, color_.value());
  const double open = lid();
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(width() / units, height() / units);
  if (open <= closedBelow) return paintClosed(painter, color);
  const bool moves = !Theme::shared().look().reducedMotion;
  if (mood_ == Mood::alert && !moves) {
    painter.setPen(QPen(withAlpha(color, 0.42), 1.8));
    painter.drawEllipse(QPointF(32, 32), 24, 24);
  } else if (expressionOf(mood_).pulses && moves) {
    const double period = mood_ == Mood::alert ? alertPulseMs : pulseMs;
    paintRings(painter, color,
               sincePulse_.isValid() ? static_cast<double>(sincePulse_.elapsed()) / period : 0);
  }
  paintOpen(painter, mood_, open, color);
}

}  // namespace sentrel
