// SPDX-License-Identifier: Apache-2.0
#include "views/eye_logo.h"

#include <QPainter>
#include <QRandomGenerator>
#include <algorithm>
#include <array>
#include <cmath>

#include "look/eye.h"
#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

using Mood = EyeLogo::Mood;

constexpr int openMs = 220;
constexpr int colorMs = 160;
constexpr int frameMs = 40;
constexpr int blinkDownMs = 90;
constexpr int blinkHoldMs = 40;
constexpr int blinkUpMs = 140;
constexpr double blinkTo = 0.06;
constexpr double pulseMs = 2400;
constexpr double alertPulseMs = 1200;
constexpr double alertPupil = 4.6;

/// How a mood looks.
struct Expression {
  double openness;  ///< 0 to 1.08
  QColor AppColors::*color;
  bool pulses;
};

const Expression& expressionOf(Mood mood) {
  static constexpr std::array expressions{
      Expression{0, &AppColors::textSecondary, false},    // idleClosed
      Expression{eyeAtRest, &AppColors::primary, false},  // idleOpen
      Expression{0.94, &AppColors::primary, true},        // active
      Expression{1.08, &AppColors::error, true},          // alert
  };
  return expressions.at(static_cast<std::size_t>(mood));
}

QColor colorOf(Mood mood) {
  return colors().*expressionOf(mood).color;
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
  Eye eye{.openness = lid(),
          .color = color,
          .scheme = Theme::shared().dark() ? AppColors::Scheme::dark : AppColors::Scheme::light};
  if (mood_ == Mood::alert) eye.pupil = alertPupil;
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  if (!eye.isClosed()) paintSurroundings(painter, color);
  paintEye(painter, QRectF(rect()), eye);
}

/// The rings of a mood that pulses, or what stands for them where nothing moves.
void EyeLogo::paintSurroundings(QPainter& painter, const QColor& color) const {
  const bool moves = !Theme::shared().look().reducedMotion;
  painter.save();
  painter.scale(width() / eyeUnits, height() / eyeUnits);
  if (mood_ == Mood::alert && !moves) {
    painter.setPen(QPen(withAlpha(color, 0.42), 1.8));
    painter.drawEllipse(QPointF(32, 32), 24, 24);
  } else if (expressionOf(mood_).pulses && moves) {
    const double period = mood_ == Mood::alert ? alertPulseMs : pulseMs;
    paintRings(painter, color,
               sincePulse_.isValid() ? static_cast<double>(sincePulse_.elapsed()) / period : 0);
  }
  painter.restore();
}

}  // namespace sentrel
